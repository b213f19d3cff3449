"""What an operator may set: every variable whose name begins with rovu_. docs/fleet.md says what each is for."""

import difflib
import pathlib
import re
import types

from ansible.errors import AnsibleActionFail

from rovu_fleet.link import without_secrets

# What the playbooks themselves note under such names.
NOTED = ("rovu_frozen", "rovu_result", "rovu_result_again", "rovu_look_result", "rovu_plan_result", "rovu_wave_result")
# Of no device, but of the playbook: those of an inventory would not be read.
OF_THE_PLAY = ("rovu_hosts", "rovu_waves")
UNITS = {"": 1, "s": 1, "sec": 1, "second": 1, "min": 60, "minute": 60, "h": 3600, "hour": 3600}
# Outcomes after which a device is not updated again unasked.
HELD = ("gone", "fell back", "unsound", "unhealthy", "returned", "replaced")


def text(value):
    if not isinstance(value, (str, int, float)) or isinstance(value, bool) or not str(value).strip():
        raise ValueError("is no string")
    return str(value)


def any_text(value):
    return text(value) if value not in (None, "") else ""


def seconds(value):
    found = re.fullmatch(r"(\d+(?:\.\d+)?) ?([a-z]*)", str(value).strip().lower())
    unit = found and (found[2] if found[2] in UNITS else found[2].rstrip("s"))
    if isinstance(value, bool) or not found or unit not in UNITS:
        raise ValueError('is no time; write seconds, or a number with s, min or h, such as "10 min"')
    return float(found[1]) * UNITS[unit]


def limit(value):
    if seconds(value) <= 0:
        raise ValueError("must be more than 0")
    return seconds(value)


def count(value):
    if isinstance(value, bool) or not re.fullmatch(r"[1-9]\d{0,8}", str(value)):
        raise ValueError("must be a whole number from 1")
    return int(value)


def percent(value):
    if isinstance(value, bool) or not re.fullmatch(r"\d+(\.\d+)?%?", str(value)) or float(str(value).rstrip("%")) > 100:
        raise ValueError("must be a percentage from 0 to 100")
    return float(str(value).rstrip("%"))


def flag(value):
    if str(value).lower() not in ("true", "false", "yes", "no"):
        raise ValueError("must be true or false")
    return str(value).lower() in ("true", "yes")


def waves(value):
    sizes = value if isinstance(value, list) else [value]
    for size in sizes:
        number = str(size).removesuffix("%")
        if isinstance(size, bool) or not number.isdecimal() or int(number) < 1 or (str(size) != number and int(number) > 100):
            raise ValueError(f"has {size!r}, which is neither a number of devices from 1 nor a percentage")
    if not sizes:
        raise ValueError("has no wave")
    return sizes


def outcomes(value):
    words = [word.strip().replace("_", " ") for word in (value if isinstance(value, list) else str(value).split(",")) if word]
    for word in words:
        if word not in HELD:
            known = ", ".join(each.replace(" ", "_") for each in HELD)
            raise ValueError(f"has {word!r}, which is none of {known}")
    return words


def most(value):
    return count(value) if value not in (None, "", 0, "0") else 0


def window(value):
    """Two times of day, in hours."""
    if value in (None, ""):
        return ()
    time = "([01]?[0-9]|2[0-4]):([0-5][0-9])"
    found = re.fullmatch(f"{time} ?- ?{time}", str(value))
    if not found or found.groups()[:2] == found.groups()[2:]:
        raise ValueError('must be two times of day, such as "22:00-05:00"')
    hours = [int(part) for part in found.groups()]
    return hours[0] + hours[1] / 60, hours[2] + hours[3] / 60


def path(value):
    found = pathlib.Path(text(value)).expanduser()
    if not found.is_absolute():
        raise ValueError("must be an absolute path")
    return str(found)


def existing(value):
    """A file or folder; an empty string is none."""
    if value in (None, ""):
        return ""
    if not pathlib.Path(path(value)).exists():
        raise ValueError("does not exist")
    return path(value)


def page(value):
    if not pathlib.Path(path(value)).parent.is_dir():
        raise ValueError("is in a folder that does not exist")
    if pathlib.Path(value).suffix != ".html":
        raise ValueError("must end in .html")
    return path(value)


REQUIRED = object()
HERE = pathlib.Path(__file__).resolve().parent.parent
# What each must be, and its default.
SETTINGS = {
    "url": (text, REQUIRED),
    "spec": (existing, REQUIRED),
    "files": (existing, ""),
    "pub": (existing, ""),
    "secrets": (existing, ""),
    "pack": (text, "rovu-pack"),
    "program": (text, "rovu"),
    "options": (any_text, "-v"),
    "health": (any_text, ""),
    "health_limit": (limit, 300),
    "hosts": (text, "all"),
    "waves": (waves, [1, "1%", "10%", "100%"]),
    "max_fail": (percent, 0),
    "max_fell_back": (percent, 0),
    "max_unreachable": (percent, 0),
    "canary_may_refuse": (flag, False),
    "retry": (outcomes, ""),
    "soak": (seconds, 600),
    "window": (window, ""),
    "downloads": (most, 0),
    "fetch": (flag, True),
    "records": (path, str(HERE / "records")),
    "report": (page, str(HERE / "report.html")),
    "poll": (limit, 5),
    "look_limit": (limit, 30),
    "command_limit": (limit, 240),
    "state_limit": (limit, 14400),
    "link_limit": (limit, 600),
    "restart_limit": (limit, 600),
    "attempts": (count, 2),
}


def complaints(names):
    """What is wrong with the names of variables."""
    for name in sorted(names):
        if name.startswith("rovu_") and name not in NOTED and name.removeprefix("rovu_") not in SETTINGS:
            near = difflib.get_close_matches(name, [f"rovu_{each}" for each in SETTINGS], 1)
            yield f"{name} is unknown" + (f"; did you mean {near[0]}?" if near else "")


def read(variables):
    """The settings by their names without rovu_. `variables`: those of a host, templated. Raises AnsibleActionFail, which
    names all that is wrong.
    """
    found, wrong = {}, list(complaints(variables))
    for name, (kind, default) in SETTINGS.items():
        value = variables.get(f"rovu_{name}", default)
        try:
            if default is REQUIRED and (value is REQUIRED or value in (None, "")):
                value = ""
                raise ValueError("must be set")
            found[name] = kind(value)
        except ValueError as error:
            wrong.append(without_secrets(f"rovu_{name} ({value!r}) {error}"))
    if wrong:
        raise AnsibleActionFail("; ".join(wrong))
    return types.SimpleNamespace(**found)
