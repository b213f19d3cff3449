"""The confirmation of a set, and the preparation script that refuses updates until then."""

from world import URL, World


class GoingBack(World):
    example = "going-back"
    root = "--host-tools"  # BusyBox's wget -T crashes in Debian 12

    def setUp(self):
        self.make_update((self.home / "_confirmed.sh").read_text())
        self.shell("mkdir -p healthy ill; echo fine >healthy/health")

    def update(self, status):
        return self.shell("rovu-sim run dev --no-wait --serve http://updates.example/2.0=www -- "
                          f"'{self.build}/rovu' {URL}", status)

    def confirm(self, status, web="healthy"):
        return self.shell(f"rovu-sim run dev --bind '{self.home}' --serve http://127.0.0.1={web} -- busybox sh '{self.home}/confirm'", status)

    def test_no_update_runs_from_a_set_on_trial(self):
        self.assertIn("not confirmed yet", self.update(1))
        self.assertIn("does not work yet", self.confirm(1, "ill"))
        self.confirm(0)
        self.assertEqual(self.boot_variables(), ["bootswitcher=0A0A00", "good=0A0A00"])
        self.update(0)
        self.assertIn("not the one that runs", self.confirm(1))
        self.shell("rovu-sim restart dev; echo tries=2 >>dev/uboot.env")
        self.assertIn("not confirmed yet", self.update(1))
        self.assertEqual(sorted(self.boot_variables()), ["bootswitcher=0A0A01", "good=0A0A00", "tries=2"])
        self.confirm(0)
        self.assertEqual(self.boot_variables(), ["bootswitcher=0A0A01", "good=0A0A01"])
        self.confirm(0, "ill")
        self.assertNotIn("fw_setenv", self.shell("rovu-sim calls dev --last"))
        self.update(0)

    def test_a_return_by_hand_leaves_no_tries(self):
        env = self.home / "dev/uboot.env"
        env.write_text("bootswitcher=0A0A00\ngood=0A0A00\ntries=3\n")
        self.confirm(0, "ill")
        self.assertEqual(self.boot_variables(), ["bootswitcher=0A0A00", "good=0A0A00"])

    def test_a_cut_between_its_writes_leaves_all_tries(self):
        (self.home / "dev/uboot.env").write_text("bootswitcher=0A0A00\ngood=0A0A01\ntries=2\n")
        self.shell(f"rovu-sim run dev --bind '{self.home}' --serve http://127.0.0.1=healthy --fail fw_setenv:2=exit:1 -- "
                   f"sh '{self.home}/confirm'", 1)
        self.assertEqual(self.boot_variables(), ["bootswitcher=0A0A00", "good=0A0A01"])
