"""Compares what --json prints with docs/schemas."""
import json
import pathlib
import re

FOLDER = pathlib.Path(__file__).resolve().parent.parent.parent / "docs" / "schemas"
NAME = re.compile(r"callorv-(.+)-(\d+)\.json")
_validators = {}


def closed(schema):
    """The schema without room for members that it does not name, which readers have to allow for."""
    if isinstance(schema, list):
        return [closed(item) for item in schema]
    if not isinstance(schema, dict):
        return schema
    result = {key: closed(value) for key, value in schema.items()}
    if isinstance(schema.get("properties"), dict):
        result.setdefault("additionalProperties", False)
    return result


def validators(kind):
    """Those of the newest schemas whose name is the kind, perhaps with one more word."""
    if kind not in _validators:
        import jsonschema    # takes 0.1 s, and most programs need it late or never
        newest = {}
        for path in FOLDER.iterdir():
            match = NAME.fullmatch(path.name)
            if match and re.fullmatch(rf"{kind}(-[a-z]+)?", match[1]):
                newest[match[1]] = max(newest.get(match[1], (0, path)), (int(match[2]), path))
        _validators[kind] = [jsonschema.Draft202012Validator(closed(json.loads(path.read_text(encoding="utf-8"))))
                             for _, path in newest.values()]
    return _validators[kind]


def complaints(kind, value):
    """What is wrong with a value by each schema of its kind; nothing when one of them takes it."""
    wrong = [] if validators(kind) else [f"docs/schemas has nothing for {kind}"]
    for validator in validators(kind):
        errors = [f"{validator.schema['$id']}: {error.json_path}: {error.message}"
                  for error in validator.iter_errors(value)]
        if not errors:
            return []
        wrong += errors
    return wrong


def check(args, output):
    """Raises AssertionError when a command's output under --json is not what docs/schemas promises."""
    words = [str(arg) for arg in args]
    kind = "-".join(words[:2] if words[0] in ("dict", "key") else words[:1])
    lines = {("call", "--stream"): "call-stream-result", ("decode", "--follow"): "decode-call"}
    line_kind = [lines[words[0], word] for word in words if (words[0], word) in lines]
    if line_kind and (words[0] == "call" or "--json" in words):
        values = [(line_kind[0], json.loads(line)) for line in output.splitlines()]
    elif "--json" in words or "json" in words[1:]:
        values = [(kind, json.loads(output))] if output else []
    else:
        return
    wrong = [text for kind, value in values for text in complaints(kind, value)]
    if wrong:
        raise AssertionError("\n".join([f"callorv {' '.join(words)}", *wrong[:20]]))
