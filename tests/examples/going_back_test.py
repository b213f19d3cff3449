"""The confirmation of a set, and the preparation script that refuses updates until then."""

import world
from world import World

MANIFEST = """{ version = 1, hardware = 'RV-20', clone_overlay = 1, '_confirmed.sh',
  { type = 'kernel', update = 'mandatory', version = '2.0', image = 'k.img' },
  { type = 'rootfs', update = 'mandatory', version = '2.0', image = 'r.img' } }
"""


class GoingBack(World):
    example = "going-back"

    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        (cls.home / "m.lua").write_text(MANIFEST)
        cls.shell("echo version=2.0 | tee k.img r.img; seq 9999 >>k.img; seq 5555 >>r.img; mkdir healthy ill; "
                  "echo fine >healthy/health; rovu-pack keygen keys; "
                  "rovu-pack build m.lua --out www --key keys/private.pem --base-url http://updates.example/2.0")

    def setUp(self):
        self.shell("rm -rf dev; rovu-sim init dev --key keys/rovu_pub.pem")

    def update(self, status):
        return self.shell(f"rovu-sim run dev --no-wait --serve http://updates.example/2.0=www -- {world.BUILD}/rovu "
                          "http://updates.example/2.0/update.lua", status)

    def confirm(self, status, web="healthy"):
        return self.shell(f"rovu-sim run dev --serve http://127.0.0.1={web} -- busybox sh {self.home}/confirm", status)

    def environment_has(self):
        return (self.home / "dev/uboot.env").read_text().split()

    def test_no_update_runs_from_a_set_on_trial(self):
        self.assertIn("not confirmed yet", self.update(1))
        self.assertIn("does not work yet", self.confirm(1, "ill"))
        self.confirm(0)
        self.assertEqual(self.environment_has(), ["bootswitcher=0A0A00", "good=0A0A00"])
        self.update(0)
        self.assertIn("not the one that runs", self.confirm(1))
        self.shell("rovu-sim restart dev; echo tries=2 >>dev/uboot.env")
        self.assertIn("not confirmed yet", self.update(1))
        self.assertEqual(sorted(self.environment_has()), ["bootswitcher=0A0A01", "good=0A0A00", "tries=2"])
        self.confirm(0)
        self.assertEqual(self.environment_has(), ["bootswitcher=0A0A01", "good=0A0A01"])
        self.confirm(0, "ill")
        self.assertNotIn("fw_setenv", self.shell("rovu-sim calls dev --last"))
        self.update(0)

    def test_a_cut_between_its_writes_leaves_all_tries(self):
        (self.home / "dev/uboot.env").write_text("bootswitcher=0A0A00\ngood=0A0A01\ntries=2\n")
        self.shell("rovu-sim run dev --serve http://127.0.0.1=healthy --fail fw_setenv:2=exit:1 -- "
                   f"sh {self.home}/confirm", 1)
        self.assertEqual(self.environment_has(), ["bootswitcher=0A0A00", "good=0A0A01"])


if __name__ == "__main__":
    world.main()
