#!/usr/bin/env python3
"""pages.py XML SOURCE MAN: adds what is made to the pages in SOURCE: the reference, from doxygen's XML, and the index, from
docs/README.md. MAN gets a man page for each function and class, which leads to the page that tells of it."""
import pathlib
import re
import sys
import xml.etree.ElementTree as ET

MAN_5 = {
    "docs/formats/dictionary": ("dictionary", "message dictionary of CallOrv"),
    "docs/formats/config": ("callorv.cfg", "configuration file of CallOrv"),
}
# Title of a room's page, and the class that its man page is named after.
ROOMS = {"client": ("Calls", "CCallOrv"), "msg": ("Messages", "CMsg"), "dict": ("The dictionary", "CMsgDic"),
         "net": ("Packets and connections", "CTcpAdaptor"), "error": ("Errors", "CLastError"),
         "base": ("Texts, dates, arrays", "CString"), "crypt": ("Encrypted files", "CCrypt")}


def compounds(xml, *kinds):
    """The definitions of classes, files or groups."""
    for entry in ET.parse(xml / "index.xml").getroot():
        if entry.get("kind") in kinds:
            yield ET.parse(xml / f"{entry.get('refid')}.xml").getroot().find("compounddef")


def groups(xml):
    """The groups of functions of callorv.h, in its order: name, title, functions, and what is said of all of them."""
    found = []
    for group in compounds(xml, "group"):
        functions = group.findall(".//memberdef[@kind='function']")
        names = [function.findtext("name") for function in functions]
        line = int(functions[0].find("location").get("line"))
        said = group.findtext("detaileddescription/para/verbatim").split("\n")[1:]    # behind "embed:rst"
        found.append((line, group.findtext("compoundname"), group.findtext("title"), names, [*said, ""]))
    return [group[1:] for group in sorted(found)]


def man_pages(xml, author):
    """What Sphinx makes man pages of. Section 3 has one for each group of C functions, named after the first of them, and
    one for each room of classes."""
    return [
        *((f"reference/{group}", names[0], title.lower(), author, 3) for group, title, names, _ in groups(xml)),
        *((f"reference/cpp_{room}", name, f"C++: {title.lower()}", author, 3) for room, (title, name) in ROOMS.items()),
        *((page, name, words, author, 5) for page, (name, words) in MAN_5.items()),
    ]


def alias(folder, names, name):
    """Man pages of other names that lead to a page."""
    for other in set(names) - {name}:
        (folder / f"{other}.3").write_text(f".so man3/{name}.3\n", encoding="ascii")


def titled(text, mark="="):
    return [text, mark * len(text), ""]


def directive(what, argument, *options):
    return [f".. {what}:: {argument}", *(f"   :{option}" for option in options), ""]


def include(header, language):
    return [f".. code-block:: {language}", "", f"   #include <{header}>", ""]


def toctree(pages, caption):
    return [".. toctree::", f"   :caption: {caption}", "", *(f"   {page.stem}" for page in pages), ""]


def write(path, *parts):
    path.write_text("\n".join(line for part in parts for line in part) + "\n", encoding="utf-8")
    return path


def c_reference(xml, folder, man):
    """A page for each group of callorv.h."""
    yield write(folder / "c.rst", titled("What holds for all of them"),
                directive("doxygenfile", "callorv.h", "sections: detaileddescription"),
                directive("doxygenstruct", "CallOrv_Error", "members:"))
    for name, title, functions, said in groups(xml):
        alias(man, functions, functions[0])
        yield write(folder / f"{name}.rst", titled(title), include("callorv/callorv.h", "c"),
                    said, directive("doxygengroup", name, "content-only:"))


def cpp_reference(xml, folder, man):
    """A page for each room of the other headers."""
    classes, free = {}, {}
    for compound in compounds(xml, "class", "struct"):
        name, header = compound.findtext("compoundname"), compound.find("location").get("file")
        if header.count("/") == 2 and not re.search("::|<", name):
            classes.setdefault(header.split("/")[1], []).append((name, compound.get("kind"), header))
    for header in compounds(xml, "file"):
        place = header.find("location").get("file")
        if place.count("/") == 2 and header.find(".//memberdef[@kind='function']") is not None:
            free.setdefault(place.split("/")[1], []).append(place)
    if set(classes) != set(ROOMS):
        sys.exit(f"pages: there are classes in {sorted(classes)}, but titles of {sorted(ROOMS)}")
    for room, (title, main) in ROOMS.items():
        alias(man, [name for name, _, _ in classes[room]], main)
        parts = [titled(title)]
        for name, kind, header in sorted(classes[room]):
            parts += [titled(name, "-"), include(header, "c++"),
                      directive(f"doxygen{kind}", name, "members:", "protected-members:")]
        if room in free:
            parts.append(titled("Outside classes", "-"))
        for header in sorted(free.get(room, [])):
            parts += [include(header, "c++"), directive("doxygenfile", header, "sections: func typedef enum")]
        yield write(folder / f"cpp_{room}.rst", *parts)


def moved(link):
    """A link of docs/README.md as seen from the top."""
    return link.removeprefix("../") if link.startswith("../") else f"docs/{link}"


def index_page(source):
    """docs/README.md, whose lists of links become what there is beside every page."""
    out, trees = [], []
    for line in (source / "docs/README.md").read_text(encoding="utf-8").splitlines():
        if line.startswith("## "):
            trees.append(["", "```{toctree}", ":hidden:", f":caption: {line[3:]}", ""])
        for title, page in re.findall(r"\[([^]]+)\]\(([^):#]+\.md)\)", line):
            trees[-1].append(f"{title} <{moved(page).removesuffix('.md')}>")
        out.append(re.sub(r"\]\((?!\w+:)([^)]+)\)", lambda link: f"]({moved(link[1])})", line))
    trees.append(["", "```{toctree}", ":hidden:", ":caption: Functions and classes", "", "reference/index"])
    write(source / "index.md", out, *([*tree, "```"] for tree in trees))
    (source / "docs/README.md").unlink()
    readme = source / "README.md"
    readme.write_text(readme.read_text(encoding="utf-8").replace("(docs/README.md)", "(index.md)"), encoding="utf-8")


def main():
    xml, source, man = map(pathlib.Path, sys.argv[1:])
    folder = source / "reference"
    folder.mkdir()
    write(folder / "index.rst", titled("Functions and classes"),
          ["Made of the headers under ``include/callorv/``, which say the same.", ""],
          toctree(c_reference(xml, folder, man), "C interface"), toctree(cpp_reference(xml, folder, man), "C++ interface"))
    index_page(source)


if __name__ == "__main__":
    main()
