# How Sphinx makes the pages; scripts/docs puts them together in build/docs/source and runs it.
# pylint: disable=invalid-name
import os
import pathlib
import re
import sys

sys.dont_write_bytecode = True
HERE = pathlib.Path(__file__).parent
sys.path.insert(0, str(HERE))
import man_tables
import mermaid
import pages

project = "CallOrv"
author = "The CallOrv developers"
project_copyright = author
VERSION_H = (HERE / "../../include/callorv/version.h").read_text(encoding="utf-8")
version = release = re.search(r'CALLORV_VERSION "(.*)"', VERSION_H)[1]

extensions = ["breathe", "myst_parser", "sphinx.ext.graphviz"]
root_doc = "index"
breathe_projects = {"callorv": os.environ["CALLORV_XML"]}
breathe_default_project = "callorv"
breathe_show_include = False
myst_heading_anchors = 4
highlight_language = "none"
smartquotes = False    # error texts are exact
graphviz_output_format = "svg"

html_theme = "alabaster"
html_title = f"CallOrv {version}"
html_copy_source = False
html_show_sourcelink = False
html_theme_options = {"page_width": "1280px", "sidebar_width": "250px", "font_family": "sans-serif", "font_size": "15px",
                      "code_font_size": "0.8em", "body_max_width": "none"}
html_sidebars = {"**": ["about.html", "navigation.html", "searchbox.html"]}

man_pages = pages.man_pages(pathlib.Path(os.environ["CALLORV_XML"]), author)
man_show_urls = True
man_make_section_directory = True


def draw(_app, _page, source):
    source[0] = mermaid.drawn(source[0])


def setup(app):
    app.connect("source-read", draw)
    app.connect("doctree-resolved", man_tables.convert)
