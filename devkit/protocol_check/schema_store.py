"""The schemas of docs/schema as functions: quick ones for every message, and a thorough one that
says what is wrong.

The schemas are written in JSON Schema 2020-12. The quick functions are compiled by a library that
knows draft 7 only, so they get the same schemas in its words: the two differ in how the members of
a tuple are named, and in keywords that are not used here. tools/tests holds the two against each
other.
"""

from __future__ import annotations

import json
from collections.abc import Callable, Iterator
from functools import lru_cache
from pathlib import Path
from typing import Any

import fastjsonschema

SCHEMA_FOLDER = Path(__file__).resolve().parents[2] / "docs" / "schema"
INDEX = SCHEMA_FOLDER / "index.json"
_SUFFIX = ".schema.json"
_SHOWN = 300

Check = Callable[[Any], Any]


@lru_cache(maxsize=None)
def schemas() -> dict[str, Any]:
    """Every schema file by its name."""
    return {path.name: json.loads(path.read_text(encoding="utf-8"))
            for path in sorted(SCHEMA_FOLDER.glob(f"*{_SUFFIX}"))}


def _in_draft_7(schema: Any, file: str) -> Any:
    """The same schema with the words of draft 7, and references into one common document."""
    if isinstance(schema, list):
        return [_in_draft_7(each, file) for each in schema]
    if not isinstance(schema, dict):
        return schema
    if "$ref" in schema:
        assert set(schema) <= {"$ref", "description"}, f"{file}: a reference with other keywords"
        target, _, pointer = schema["$ref"].partition("#")
        return {"$ref": f"#/definitions/{target or file}{pointer}"}
    renamed = {}
    for key, value in schema.items():
        if key in ("$schema", "$id", "title", "description"):
            continue
        if key == "const" and isinstance(value, (bool, int)):
            # Python has it that 0 is False; JSON does not.
            renamed |= {key: value, "type": "boolean" if isinstance(value, bool) else "integer"}
        elif key in ("const", "enum", "required"):
            renamed[key] = value
        elif key in ("properties", "$defs"):
            renamed[key] = {name: _in_draft_7(each, file) for name, each in value.items()}
        elif key == "prefixItems":
            renamed["items"] = _in_draft_7(value, file)
        elif key == "items" and "prefixItems" in schema:
            renamed["additionalItems"] = _in_draft_7(value, file)
        else:
            renamed[key] = _in_draft_7(value, file)
    return renamed


@lru_cache(maxsize=None)
def _all_in_draft_7() -> dict[str, Any]:
    return {name: _in_draft_7(schema, name) for name, schema in schemas().items()}


def _references(schema: Any) -> Iterator[str]:
    if isinstance(schema, dict):
        if isinstance(schema.get("$ref"), str):
            yield schema["$ref"]
        for value in schema.values():
            yield from _references(value)
    elif isinstance(schema, list):
        for value in schema:
            yield from _references(value)


def _needed_by(first: str) -> dict[str, Any]:
    """The definitions that a reference leads to, as few as possible: compiling looks at all."""
    needed: dict[str, Any] = {}
    waiting = [first]
    while waiting:
        _, _, file, _, name = waiting.pop().split("/")
        definitions = needed.setdefault(file, {"$defs": {}})["$defs"]
        if name not in definitions:
            definitions[name] = _all_in_draft_7()[file]["$defs"][name]
            waiting += _references(definitions[name])
    return needed


@lru_cache(maxsize=None)
def quick_check(reference: str) -> Check:
    """Raises fastjsonschema.JsonSchemaException for a value that the schema does not allow."""
    first = "#/definitions/" + reference.replace("#", "")
    check: Check = fastjsonschema.compile({
        "$schema": "http://json-schema.org/draft-07/schema#",
        "allOf": [{"$ref": first}],
        "definitions": _needed_by(first),
    })
    return check


@lru_cache(maxsize=None)
def thorough_check(reference: str) -> Any:
    """A validator of jsonschema, which takes a while to load and is mostly not needed."""
    import jsonschema

    store = {schema["$id"]: schema for schema in schemas().values()}
    base = schemas()[reference.partition("#")[0]]["$id"].rpartition("/")[0] + "/"
    resolver = jsonschema.RefResolver(base, {}, store=store)
    return jsonschema.Draft202012Validator({"$ref": base + reference}, resolver=resolver)


def _innermost(error: Any) -> Any:
    """Of several ways in which a value could have been right, the one that it came closest to."""
    while error.context:
        closest = max(error.context, key=lambda each: len(each.absolute_path))
        error = closest
    return error


def _in_short(value: Any) -> str:
    text = json.dumps(value, default=repr)
    return text if len(text) <= _SHOWN else f"{text[:_SHOWN]}... ({len(text):,} characters)"


def fault_of(reference: str, value: Any) -> str:
    """What is wrong with the value, in words; empty when nothing is."""
    try:
        quick_check(reference)(value)
        return ""
    except fastjsonschema.JsonSchemaException as quick:
        errors = list(thorough_check(reference).iter_errors(value))
        if not errors:
            return f"{reference}: {quick.message} (but the thorough check finds nothing)"
        worst = _innermost(errors[0])
        where = "/".join(str(step) for step in worst.absolute_path)
        reason = worst.message if len(worst.message) <= _SHOWN else worst.message[:_SHOWN] + "..."
        return f"{reference}: at /{where}: {reason}\n    in {_in_short(value)}"
