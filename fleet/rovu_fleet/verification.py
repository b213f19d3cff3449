"""Whether a device that came back is what its update should have made of it."""

import re


def numbers(version):
    """The first four numbers of a version or a kernel release, as the device compares them."""
    found = [int(number) for number in re.findall(r"\d+", re.split(r"[^0-9.\-]", version)[0])[:4]]
    return found + [0] * (4 - len(found))


def set_of(bootswitcher):
    """The set that the boot loader starts: 0 if the lowest byte is 0, else 1; None if that cannot be told."""
    if not re.fullmatch(r"(0[xX])?[0-9a-fA-F]+", bootswitcher or ""):
        return None
    return 0 if int(bootswitcher, 16) & 0xFF == 0 else 1


def wrong_references(look, digests, active):
    """Volumes of the active set that do not hold what the reference files say."""
    wrong = []
    for volume in (f"k{active}", f"k{active}_root"):
        expected = look.get(f"reference.{volume}")
        if expected and digests.get(volume) != expected:
            wrong.append(volume)
    return wrong


def runs_target(look, images):
    """Whether the active set holds the images of the update, by the reference files."""
    volumes = {"kernel": f"k{look['active']}", "rootfs": f"k{look['active']}_root"}
    return bool(images) and all(
        look.get(f"reference.{volumes[kind]}") == image["md5"]
        for kind, image in images.items()
        if image["mandatory"]
    ) and any(image["mandatory"] for image in images.values())


def faults(look, digests, expected):
    """What is wrong with a device that came back, as sentences.

    `expected`: the active set and, for each volume of it that the update wrote, its kind, version and MD5.
    """
    found = []
    active = int(look["active"])
    if set_of(look.get("bootswitcher")) != active:
        found.append("bootswitcher does not name the set that runs")
    if look.get("references") != "agree":
        found.append(f"the reference files: {look.get('references')}")
    for volume in expected["volumes"]:
        if digests.get(volume["name"]) != volume["md5"]:
            found.append(f"volume {volume['name']} does not hold the image of the update")
        if volume["version"] and numbers(look[volume["kind"]]) != numbers(volume["version"]):
            found.append(f"{volume['kind']} {look[volume['kind']]} runs instead of {volume['version']}")
    for volume in wrong_references(look, digests, active):
        found.append(f"volume {volume} does not hold what the reference files say")
    if look.get("work_directory"):
        found.append("/tmp/rovu is there")
    return found
