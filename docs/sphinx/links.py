#!/usr/bin/env python3
"""links.py HTML: fails for a link in a folder of pages when there is no such file, or no such place in the page. Links to other
machines are not tried."""
import html.parser
import pathlib
import sys
import urllib.parse


class Page(html.parser.HTMLParser):
    """Where a page's links lead, and the places in it."""

    def __init__(self, path):
        super().__init__()
        self.links, self.places = set(), {""}
        self.feed(path.read_text(encoding="utf-8"))

    def handle_starttag(self, tag, attrs):
        for name, value in attrs:
            if name in ("href", "src", "data"):
                self.links.add(value)
            elif name in ("id", "name"):
                self.places.add(value)


def main():
    root = pathlib.Path(sys.argv[1]).resolve()
    pages = {path: Page(path) for path in root.rglob("*.html")}
    broken, seen = [], 0
    for path, page in pages.items():
        for link in sorted(page.links):
            parts = urllib.parse.urlsplit(link)
            if parts.scheme or parts.netloc:
                continue
            seen += 1
            target = (path.parent / urllib.parse.unquote(parts.path)).resolve() if parts.path else path
            if not target.is_file():
                broken.append(f"{path.relative_to(root)}: {link}: no such file")
            elif target in pages and urllib.parse.unquote(parts.fragment) not in pages[target].places:
                broken.append(f"{path.relative_to(root)}: {link}: no such place in the page")
    print("\n".join([*broken, f"links: {seen} seen in {len(pages)} pages, {len(broken)} lead nowhere"]))
    return bool(broken) or not seen


sys.exit(main())
