"""What an update will do to a fleet: one row for each kind of device."""

from ansible.utils.helpers import pct_to_int

from rovu_fleet.outcome import missing
from rovu_fleet.pack import kind_of
from rovu_fleet.verification import holds, recorded

HEADER = ["DEVICES", "MODEL", "KERNEL", "ROOTFS", "OTHER SET", "NEXT KERNEL", "NEXT ROOTFS", "NEXT DATA", "VERDICT"]


def split(results):
    """The devices that told what they are, and why each of the others did not.

    `results`: those of rovu_look, by name.
    """
    answered, silent = [], {}
    for name, result in results.items():
        if not result.get("answered"):
            silent[name] = result.get("why") or "unreachable"
        elif missing(result["device"]):
            silent[name] = "the device does not tell: " + ", ".join(missing(result["device"]))
        else:
            answered.append(result["device"])
    return answered, silent


def other_set(look, images):
    """What the inactive set holds, by the reference files."""
    other = 1 - int(look["active"])
    held = {kind: look.get(f"reference.k{other}{suffix}") for kind, suffix in (("kernel", ""), ("rootfs", "_root"))}
    if images and all(held[kind] == image["md5"] for kind, image in images.items()):
        return "this update"
    return "an earlier one" if all(held.values()) else "not recorded"


def group(looks, images):
    """Devices that an update treats alike, in the order of the first of each: a list of [count, look].

    `looks`: what look.sh printed on each. The room of a group is that of its smallest device.
    """
    groups = {}
    for look in looks:
        key = (look["model"], look["kernel"], look["rootfs"], look["active"], holds(recorded(look), images, look["active"]))
        key += (other_set(look, images),)
        group_of = groups.setdefault(key, [0, dict(look)])
        group_of[0] += 1
        for room in ("tmp", "free_lebs"):
            if look.get(room) and int(look[room]) < int(group_of[1].get(room) or look[room]):
                group_of[1][room] = look[room]
    return list(groups.values())


def verdict(device, plan):
    """One word, or the reason of a refusal."""
    if not device["accepts"]:
        return "refuses: " + device["refusal"]
    room = device.get("device_room") or {}
    if room.get("fits_tmp") is False:
        return f"NO ROOM: {room['needs_tmp_bytes']} bytes are needed in /tmp, {room['tmp_bytes']} are there"
    if room.get("fits_lebs") is False:
        return f"NO ROOM: {room['needs_lebs']} LEBs are needed"
    return "switches" if plan["switches"] else "stays"


def next_of(plan):
    """What each volume of the set that boots will hold: "2.1 new", "copied", "? earlier"."""
    cells = {"kernel": "", "rootfs": "", "data": ""}
    for boot in plan["boots"]:
        version = boot["version"] or ("" if boot["kind"] == "data" else "?")
        cells[boot["kind"]] = f"{version} {boot['content']}".strip()
    return [cells["kernel"], cells["rootfs"], cells["data"]]


def table(looks, pack, images):
    """Rows of cells, the header first. One call of rovu-pack for all kinds."""
    kinds = group(looks, images)
    devices = pack.check([kind_of(look) for _, look in kinds])["devices"] if kinds else []
    rows = [HEADER]
    for (count, look), device in zip(kinds, devices):
        plan = next(each for each in device["plans"] if each["active_set"] == int(look["active"]))
        if holds(recorded(look), images, look["active"]):
            cells = ["", "", "", "runs it already"]
        else:
            cells = [*next_of(plan), verdict(device, plan)]
        rows.append([str(count), look["model"], look["kernel"], look["rootfs"], other_set(look, images), *cells])
    return rows


def text(rows):
    widths = [max(len(row[column]) for row in rows) for column in range(len(HEADER))]
    return ["  ".join(cell.ljust(width) for cell, width in zip(row, widths)).rstrip() for row in rows]


def drawn(results):
    """The devices in the order of the waves: the first one of each kind, then the others, and those that did not answer.

    The first device of the inventory stays the canary, and of the other kinds the most frequent one comes first. `results`:
    as for split().
    """
    kinds, silent = {}, []
    for name, result in results.items():
        look = result.get("device") or {}
        if not result.get("answered") or missing(look):
            silent.append(name)
        else:
            kinds.setdefault((look["model"], look["kernel"], look["rootfs"]), []).append(name)
    first, *others = list(kinds.values()) or [[]]
    heads = [kind[0] for kind in [first, *sorted(others, key=len, reverse=True)] if kind]
    return [*heads, *(name for name in results if name not in {*heads, *silent}), *silent]


def batches(hosts, sizes):
    """The devices of each wave, as Ansible divides them: a percentage is of all devices, and the last size is repeated."""
    found, left = [], list(hosts)
    while left:
        number = pct_to_int(sizes[min(len(found), len(sizes) - 1)], len(hosts))
        found.append(left[:number])
        left = left[number:]
    return found
