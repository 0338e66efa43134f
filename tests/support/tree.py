"""What the tests of the tree and of the programs read from the public headers, so that no count and no
name of an action or function is written down a second time."""

import re
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]
PUBLIC = ROOT / "include"


def actions():
    """The rows of the table of actions: name, count of arguments, parameters."""
    table = (PUBLIC / "kvfile" / "action_table.def").read_text(encoding="utf-8")
    return re.findall(r"^KVF_(?:PASSIVE_)?ACTION\((Kvf\w+), (\d+), \(([^)]*)\)", table, re.M)


def passive_actions():
    """The names of those that are declared apart."""
    table = (PUBLIC / "kvfile" / "action_table.def").read_text(encoding="utf-8")
    return re.findall(r"^KVF_PASSIVE_ACTION\((Kvf\w+),", table, re.M)


def c_functions():
    """The functions that a product's own code calls."""
    text = (PUBLIC / "kvfile" / "kvfile.h").read_text(encoding="utf-8")
    code = re.sub(r"/\*.*?\*/", "", text, flags=re.S)
    return set(re.findall(r"^\w[\w *]*\b(Kv\w+)\(", code, re.M))


def action_names():
    return {name for name, _, _ in actions()}
