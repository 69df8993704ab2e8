#!/usr/bin/env python3
"""scripts/pictures.py [--check]: draws the pictures of ARCHITECTURE.md from the sources, or fails when they are not as drawn.

The rooms come from the folders that are a library's and the arrows from their #include lines, without those that others
imply. A call's way is CALLS: each function must be defined in one file, and named in its caller's."""
import pathlib
import re
import sys

sys.dont_write_bytecode = True
from check_layers import MAY, includes

PAGE = pathlib.Path("ARCHITECTURE.md")
# (caller, callee, what for)
CALLS = (
    ("", "CallOrv_CallService", "a service's number, the request"),
    ("CallOrv_CallService", "CCallOrv::CallServiceByMsg", "no exception comes back from here"),
    ("MakeRequest", "AppendXml", "the request, behind room for a header"),
    ("CCallOrv::CallServiceByMsg", "WritePacket", "compressed when long"),
    ("CCallOrv::CallServiceByMsg", "CAdaptor::SendData", "to the server"),
    ("CCallOrv::CallServiceByMsg", "CPacketMachine::ReadFrom", "each part checked as it comes"),
    ("CPacketMachine::ReadFrom", "CAdaptor::ReceiveData", "within the time-out"),
    ("ReadReply", "CMsg::LoadXml", "the reply's XML"),
    ("CMsg::LoadXml", "ReadOwnForm", "nearly always"),
    ("ReadOwnForm", "CAccess::StoreText", "value by value"),
    ("CMsg::LoadXml", "MsgHandler::Action", "whatever else it is"),
    ("MsgHandler::Action", "CXmlHandler::ParseText", "by Xerces-C++"),
    ("MsgHandler::OnText", "CAccess::StoreText", "value by value"),
)


def rooms():
    """Each room and the rooms that it includes, without those that it reaches through them."""
    uses = {room: set() for room in MAY}
    for room, users in uses.items():
        for root in (pathlib.Path(room), pathlib.Path("include/callorv", room)):
            for _, _, name in includes(root):
                head = name.removeprefix("callorv/").split("/")[0]
                if head in MAY and head != room:
                    users.add(head)

    def reached(room):
        return set().union(*({other} | reached(other) for other in uses[room]), set())

    lines = ["flowchart BT"]
    for room, users in uses.items():
        lines.append(f"  {room}")
        implied = set().union(*(reached(other) for other in users), set())
        lines += [f"  {room} --> {other}" for other in MAY if other in users - implied]
    return lines


def file_of(function, texts):
    """The one file in which a function is defined."""
    pattern = re.compile(rf"^(?=\S)[\w:<>*&\[\] ]*?\b{re.escape(function)}\([^;]*$", re.MULTILINE)
    found = [path for path, text in texts.items() if pattern.search(text)]
    if len(found) != 1:
        sys.exit(f"pictures: {function} is defined in {found or 'no source'}, not in one")
    return found[0]


def call():
    """A call's way through the rooms."""
    texts = {path: path.read_text(encoding="utf-8") for room in MAY for path in sorted(pathlib.Path(room).glob("*.cpp"))}
    lines = ["sequenceDiagram"]
    for caller, callee, why in CALLS:
        to = file_of(callee, texts)
        if caller:
            origin = file_of(caller, texts)
            if callee.split("::")[-1] not in texts[origin]:
                sys.exit(f"pictures: {caller} ({origin}) does not call {callee}")
        lines.append(f"  {origin.parts[0] if caller else 'application'}->>{to.parts[0]}: {callee}: {why}")
    return lines


def main():
    page = PAGE.read_text(encoding="utf-8")
    drawn = page
    for name, lines in (("rooms", rooms()), ("a call", call())):
        mark = f"<!-- {name}, drawn by scripts/pictures.py -->\n"
        drawn, count = re.subn(re.escape(mark) + r"```mermaid\n.*?```\n",
                               lambda _: mark + "```mermaid\n" + "\n".join(lines) + "\n```\n", drawn, flags=re.DOTALL)
        if count != 1:
            sys.exit(f"pictures: {PAGE} has no place for the picture of {name}")
    if drawn == page:
        return
    if "--check" in sys.argv[1:]:
        sys.exit(f"pictures: {PAGE} is not as the sources are; run scripts/pictures.py")
    PAGE.write_text(drawn, encoding="utf-8")


if __name__ == "__main__":
    main()
