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


def volumes_of(number):
    """The volumes of a set that updates write, by the kind of their image."""
    return {"kernel": f"k{number}", "rootfs": f"k{number}_root"}


def holds(values, images, number):
    """Whether a set holds the update: all its mandatory images. `values`: an MD5 for each volume."""
    mandatory = {kind: image["md5"] for kind, image in images.items() if image["mandatory"]}
    return bool(mandatory) and all(values.get(volumes_of(number)[kind]) == md5 for kind, md5 in mandatory.items())


def recorded(look):
    """The MD5 of each volume, by the reference files."""
    return {name.removeprefix("reference."): value for name, value in look.items() if name.startswith("reference.")}


def noted(look, digests):
    """What a device is before its update or its return, which the verdict on it rests on."""
    return {"active": look["active"], "references": look.get("references"), "recorded": recorded(look), "digests": digests}


def lost(before, digests):
    """What has become of the set that ran before, which nothing may change, as sentences. `before`: from noted()."""
    volumes = volumes_of(before["active"]).values()
    return list(filter(None, (unlike(name, before["digests"].get(name), digests, "what it held before") for name in volumes)))


def unlike(name, expected, digests, what):
    """Why a volume is not as it should be; empty if it is."""
    if not digests.get(name):
        return f"volume {name} was not read"
    return "" if digests[name] == expected else f"volume {name} does not hold {what}"


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
        found.append(unlike(volume["name"], volume["md5"], digests, "the image of the update"))
        if volume["version"] and numbers(look[volume["kind"]]) != numbers(volume["version"]):
            found.append(f"{volume['kind']} {look[volume['kind']]} runs instead of {volume['version']}")
    for volume in volumes_of(active).values():
        if volume in recorded(look):
            found.append(unlike(volume, recorded(look)[volume], digests, "what the reference files say"))
    if look.get("work_directory"):
        found.append("/tmp/rovu is there")
    return list(dict.fromkeys(filter(None, found)))
