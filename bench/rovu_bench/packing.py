"""The files of an encrypted update: `rovu-pack build`, against by_hand/build."""

import pathlib
import shutil

from .pairs import compare, cost_of, run
from .release import MIB, Keys, Source

BY_HAND = pathlib.Path(__file__).resolve().parent.parent / "by_hand/build"
URL = "http://updates.example/2.0"


def measure(build, work, plan):
    rovu_pack = build / "rovu-pack"
    keys = Keys(rovu_pack, work / "keys")
    source = Source(work / "source", plan.images)
    ours, other = work / "ours", work / "other"

    def build_with_rovu_pack():
        shutil.rmtree(ours, ignore_errors=True)
        return cost_of(source.build_command(rovu_pack, keys, ours, URL))

    def build_by_hand():
        shutil.rmtree(other, ignore_errors=True)
        return cost_of([BY_HAND, source.folder, other, keys.private, keys.secrets, URL])

    result = compare(build_with_rovu_pack, build_by_hand, plan.pairs)
    # What was made by hand is as good as the other.
    for out in (ours, other):
        run([rovu_pack, "check", out / "update.lua", "--pub", keys.public, "--files", out, "--secrets", keys.secrets])
    return {"images_mib": [size // MIB for size in plan.images.values()], "comparison": result}
