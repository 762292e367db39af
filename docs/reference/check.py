#!/usr/bin/env python3
"""Checks what the public headers say, as Doxygen read them (its XML folder is the argument).

A class says what it is, or what it implements does. A function says what it does unless its name and
type do: a getter, a constructor, an operator, an override. A comment speaks for all the declarations
below it up to an empty line. The thread is said by the function or
its class, or the class is a plain value or record (docs/threads.md says what holds for these).
"""
import re
import sys
import xml.etree.ElementTree as ElementTree
from pathlib import Path

folder = Path(sys.argv[1])
THREAD = re.compile(r"thread|queue|immutable|callback|at once|before it returns|pure|constant", re.I)
COMMENT = re.compile(r"//[^\n]*|/\*.*?\*/", re.S)
complaints = []


def text(element, *tags):
    return " ".join("".join(part.itertext()) for tag in tags for part in element.findall(tag)).strip()


def words(element):
    return text(element, "briefdescription", "detaileddescription", "inbodydescription")


classes = {}
for entry in ElementTree.parse(folder / "index.xml").getroot().findall("compound"):
    if entry.get("kind") in ("class", "struct", "namespace", "file"):
        compound = ElementTree.parse(folder / f"{entry.get('refid')}.xml").getroot().find("compounddef")
        classes[compound.get("id")] = compound


def is_getter(member):
    return not member.findall("param") and (member.get("const") == "yes" or member.get("static") == "yes")


def explained_by_name(compound, member):
    name = member.findtext("name")
    own = compound.findtext("compoundname").split("::")[-1].split("<")[0].strip()
    return (
        is_getter(member)
        or name in (own, "~" + own)
        or name.startswith("operator")
        or member.find("reimplements") is not None
        or member.findtext("argsstring", "").endswith(("=delete", "=default", "= delete"))
    )


def block_words(member):
    """The comment lines of the block of declarations that the member stands in."""
    where = member.find("location")
    lines = Path(where.get("file")).read_text().splitlines()[: int(where.get("line"))]
    block = []
    while lines and lines[-1].strip():
        block.append(lines.pop())
    return " ".join(COMMENT.findall("\n".join(reversed(block)))).strip()


def is_plain(compound):
    """A value or a record: what changes it, if anything, says on which thread."""
    functions = [m for m in compound.iter("memberdef") if m.get("kind") == "function" and m.get("prot") != "private"]
    changing = [m for m in functions if m.get("const") != "yes" and m.get("static") != "yes"]
    return all(explained_by_name(compound, m) or THREAD.search(words(m) or block_words(m)) for m in changing)


def says_thread(compound):
    bases = [classes[b.get("refid")] for b in compound.findall("basecompoundref") if b.get("refid") in classes]
    outer = compound.findtext("compoundname").rpartition("::")[0]
    around = [c for c in classes.values() if c.findtext("compoundname") == outer and c.get("kind") != "namespace"]
    return THREAD.search(words(compound)) or any(says_thread(other) for other in bases + around)


def is_named(compound):
    bases = [classes[b.get("refid")] for b in compound.findall("basecompoundref") if b.get("refid") in classes]
    return words(compound) or any(is_named(base) for base in bases)


for compound in classes.values():
    name = compound.findtext("compoundname")
    is_class = compound.get("kind") in ("class", "struct")
    if is_class and compound.get("prot") != "public":
        continue
    if is_class and name.count("::") == 1 and not is_named(compound):
        complaints.append(f"{name}: says nothing of what it is")
    for member in compound.iter("memberdef"):
        if member.get("kind") != "function" or member.get("prot") == "private":
            continue
        if explained_by_name(compound, member):
            continue
        where = member.find("location")
        at = f"{where.get('file')}:{where.get('line')}: {name}::{member.findtext('name')}{member.findtext('argsstring')}"
        said = words(member) or block_words(member)
        if not said:
            complaints.append(f"{at}: no word about it")
        elif is_class and not THREAD.search(said) and not is_plain(compound) and not says_thread(compound):
            complaints.append(f"{at}: neither it nor its class names a thread")

for complaint in sorted(set(complaints)):
    print(complaint, file=sys.stderr)
sys.exit(1 if complaints else 0)
