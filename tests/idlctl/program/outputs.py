# SPDX-License-Identifier: Apache-2.0
"""What is true of everything that --json prints, and the schemas of docs/schemas."""

import json
import pathlib
import re

import jsonschema

WIDEST = 1 << 32  # the first number that has to be a text
NAMES = ("list", "watch", "wait", "dump", "doctor", "suffixes-show", "suffixes-check")


class Wrong(Exception):
    """Output that is not as promised."""


def schemas(folder):
    """The schemas by their commands; strict ones, or Wrong."""
    found = {}
    for name in NAMES:
        schema = json.loads((pathlib.Path(folder) / (name + ".schema.json")).read_text(encoding="utf-8"))
        jsonschema.Draft202012Validator.check_schema(schema)
        for place, part in objects_of(schema, name):
            if part.get("additionalProperties") is not False:
                raise Wrong("%s lets anything in" % place)
        found[name.replace("-", " ")] = jsonschema.Draft202012Validator(schema)
    return found


def objects_of(schema, place):
    """The parts of a schema that describe an object."""
    if isinstance(schema, dict):
        if schema.get("type") == "object":
            yield place, schema
        for key, value in schema.items():
            yield from objects_of(value, place + "/" + key)
    elif isinstance(schema, list):
        for index, value in enumerate(schema):
            yield from objects_of(value, "%s/%d" % (place, index))


def in_order(pairs):
    keys = [key for key, _ in pairs]
    if keys != sorted(set(keys)):
        raise Wrong("keys are not in order: %s" % keys)
    return dict(pairs)


def values_of(value):
    yield value
    for part in value.values() if isinstance(value, dict) else value if isinstance(value, list) else ():
        yield from values_of(part)


def texts_with_bytes(value):
    """The pairs of a text and its bytes, where those are no UTF-8."""
    for part in values_of(value):
        if isinstance(part, dict):
            for key in part:
                if key.endswith("Hex"):
                    yield part[key[:-len("Hex")]], bytes.fromhex(part[key])


def parsed(text, validator):
    """One object of --json. Raises Wrong when it is not as all of them are promised to be."""
    if re.search(rb"[^\x0a\x20-\x7e]", text):
        raise Wrong("not harmless ASCII: %r" % text[:200])
    try:
        value = json.loads(text, object_pairs_hook=in_order, parse_constant=lambda word: in_order([(word, 0)] * 2))
    except ValueError as error:
        raise Wrong("no JSON: %s: %r" % (error, text[:200])) from error
    if not isinstance(value, dict) or value.get("schema") != 1:
        raise Wrong("not \"schema\": 1")
    for part in values_of(value):
        if isinstance(part, (int, float)) and not isinstance(part, bool) and (abs(part) >= WIDEST or isinstance(part, float)):
            raise Wrong("a number that readers may round: %r" % part)
    for shown, bytes_ in texts_with_bytes(value):
        if "\ufffd" not in shown:
            raise Wrong("bytes beside a text that has them all: %r" % shown)
        try:
            bytes_.decode("utf-8")
        except UnicodeDecodeError:
            continue
        raise Wrong("bytes beside a text that is UTF-8: %r" % shown)
    error = jsonschema.exceptions.best_match(validator.iter_errors(value))
    if error is not None:
        raise Wrong("not as the schema has it: %s at /%s" % (error.message[:300], "/".join(map(str, error.absolute_path))))
    return value


def broken_ones(value, path=()):
    """Copies of a value each of which is broken in one place, with the place, elements of arrays being one place: a member
    too many, and a value of another type."""
    if isinstance(value, dict):
        yield path + ("+",), dict(value, unknownMember=1)
        for key, part in value.items():
            for place, broken in broken_ones(part, path + (key,)):
                yield place, dict(value, **{key: broken})
    elif isinstance(value, list):
        for index, part in enumerate(value):
            for place, broken in broken_ones(part, path + ("[]",)):
                yield place, value[:index] + [broken] + value[index + 1:]
        yield path, {}
    else:
        yield path, [] if isinstance(value, str) else "text"
