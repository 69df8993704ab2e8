"""Tables as lists in man pages, where groff breaks those that are longer than a screen."""
from docutils import nodes


def as_list(table):
    """The first cell of each row, with the others below it: from the third column on with the column's title."""
    titles = [title.astext() for title in next(table.findall(nodes.thead)).findall(nodes.entry)]
    made = nodes.definition_list()
    for row in next(table.findall(nodes.tbody)).children:
        told = nodes.paragraph()
        for at, cell in enumerate(row.children[1:], 1):
            if told.children and cell.astext():
                told += nodes.Text(f" - {titles[at]}: " if titles[at] and at > 1 else " - ")
            for paragraph in cell.findall(nodes.paragraph):
                told.extend(paragraph.children)
        term = nodes.term("", row.children[0].astext())
        made += nodes.definition_list_item("", term, nodes.definition("", told))
    return made


def convert(app, doctree, _page):
    if app.builder.name == "man":
        for table in list(doctree.findall(nodes.table)):
            table.replace_self(as_list(table))
