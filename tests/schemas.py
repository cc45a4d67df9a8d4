"""The JSON schemas of docs/schemas/, and whether a line of output keeps to its own."""

import functools
import json
import pathlib

import jsonschema

FOLDER = pathlib.Path(__file__).parent.parent / "docs" / "schemas"
OF_REPLAY = ("dump", "diff", "turn", "exception")


@functools.cache
def _read(name):
    return json.loads((FOLDER / name).read_text())


def _whole(node, file):
    """A part of a schema, with what it refers to in its place."""
    if isinstance(node, list):
        return [_whole(each, file) for each in node]
    if not isinstance(node, dict):
        return node
    if "$ref" in node:
        other, _, name = node["$ref"].partition("#/$defs/")
        other = other or file
        return _whole(_read(other)["$defs"][name], other)
    return {key: _whole(value, file) for key, value in node.items()}


@functools.cache
def validator(name):
    schema = _whole(_read(f"{name}.json"), f"{name}.json")
    jsonschema.Draft202012Validator.check_schema(schema)
    return jsonschema.Draft202012Validator(schema)


@functools.lru_cache(maxsize=1_000_000)
def _check(line, name):
    error = jsonschema.exceptions.best_match(validator(name).iter_errors(json.loads(line)))
    if error:
        place = "/".join(str(part) for part in error.absolute_path)
        raise AssertionError(f"{name}: {place}: {error.message[:500]}: {line[:1000]}")


def read(line, name):
    """The object of a line of output; fails if that is not what the schema says."""
    _check(line, name)
    return json.loads(line)


def read_replay(line):
    """The same of a line that a replay has printed."""
    kinds = [kind for kind in OF_REPLAY if kind in json.loads(line)]
    assert kinds, f"expected one of {OF_REPLAY}: {line[:1000]}"
    return read(line, kinds[0])
