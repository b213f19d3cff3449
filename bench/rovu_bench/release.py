"""What a release engineer starts from: keys, a key file, scripts, images of random bytes, and a manifest."""

import pathlib
import random

from .pairs import run

MIB = 1024 * 1024
VERSION = "2.0"


class Keys:
    """A signing key, the devices' public key and the key file for encrypted updates."""

    def __init__(self, rovu_pack, folder):
        run([rovu_pack, "keygen", folder])
        self.private = folder / "private.pem"
        self.public = folder / "rovu_pub.pem"
        self.secrets = folder / "preshared"
        run([rovu_pack, "secret", self.secrets])


def write_image(path, size):
    """Writes an image that does not compress. Its first line names its version to the simulator."""
    head = f"version={VERSION}\n".encode()
    path.write_bytes(head + random.Random(size).randbytes(size - len(head)))


def image_entry(kind):
    return f"  {{ type = '{kind}', update = 'mandatory', version = '{VERSION}', image = '{kind}.img' }},\n"


class Source:
    """The folder of a release before it is built. `images` gives the sizes in bytes by kind, `kernel` or `rootfs`."""

    def __init__(self, folder, images, scripts=1, encrypted=True):
        self.folder = pathlib.Path(folder)
        self.folder.mkdir()
        self.manifest = self.folder / "manifest.lua"
        self.images = images
        names = [f"s{number}.sh" for number in range(scripts)]
        for name in names:
            (self.folder / name).write_text("true\n")
        for kind, size in images.items():
            write_image(self.folder / f"{kind}.img", size)
        self.manifest.write_text(
            "{\n  version = 1, hardware = 'RV-20',\n"
            + ("  encr_key_offset = 0,\n" if encrypted else "")
            + "".join(f"  '{name}',\n" for name in names)
            + "".join(map(image_entry, images))
            + "}\n"
        )
        self.encrypted = encrypted

    def build_command(self, rovu_pack, keys, out, url):
        command = [rovu_pack, "build", self.manifest, "--out", out, "--key", keys.private, "--base-url", url]
        return command + (["--secrets", keys.secrets] if self.encrypted else [])
