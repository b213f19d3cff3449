"""The commands of examples/README.md, from a folder of nothing to an update that a device starts itself."""

import re

from world import EXAMPLES, World


class Readme(World):
    example = "device"

    def test_its_commands_lead_to_an_update(self):
        commands = "".join(re.findall(r"^    (.*\n)", (EXAMPLES / "README.md").read_text(), re.MULTILINE))
        commands = commands.replace("/usr/local/libexec/rovu", f"'{self.build}'")
        said = self.shell(f"mkdir top; cp -r '{EXAMPLES}' top; cd top; {commands}rovu-sim show dev")
        self.assertIn("\nrelease: 2.5.0\n", said)
        self.assertIn("\ncomplete: http://updates.example/2.5.0/update.lua\n", said)
        self.assertRegex(said, r"kernel +3\.10\.53")
