"""docs/protocol.md, docs/schema and the program say the same."""

import copy
import json
import re
import warnings

import fastjsonschema
import pytest
from conftest import ROOT
from document_examples import examples
from protocol_check.message_index import channels, message_fault, reply_fault
from protocol_check.schema_store import SCHEMA_FOLDER, quick_check, schemas, thorough_check

with warnings.catch_warnings():
    warnings.simplefilter("ignore")
    import jsonschema

EXAMPLES = examples()
# Reports of a command, not messages on a channel.
STAND_ALONE = {"doctor.schema.json"}


def references(schema, file):
    """Every definition that a schema refers to, as file#pointer."""
    if isinstance(schema, dict):
        if "$ref" in schema:
            target, _, pointer = schema["$ref"].partition("#")
            yield f"{target or file}#{pointer}"
        for value in schema.values():
            yield from references(value, file)
    elif isinstance(schema, list):
        for value in schema:
            yield from references(value, file)


def definition(reference):
    file, _, pointer = reference.partition("#")
    assert file in schemas(), reference
    found = schemas()[file]
    for step in pointer.strip("/").split("/"):
        assert step in found, reference
        found = found[step]
    return found


def index_references():
    for channel in channels().values():
        if "refusal" in channel:
            yield channel["refusal"]
        for entry in channel["messages"].values():
            yield from (entry[part] for part in ("schema", "reply") if part in entry)


@pytest.mark.parametrize("path", sorted(SCHEMA_FOLDER.glob("*.schema.json")), ids=lambda p: p.name)
def test_a_schema_is_one_of_the_2020_12_draft(path):
    schema = json.loads(path.read_text(encoding="utf-8"))
    assert schema["$schema"] == "https://json-schema.org/draft/2020-12/schema"
    jsonschema.Draft202012Validator.check_schema(schema)


def test_every_definition_exists_and_is_reached_from_the_index():
    waiting, reached = list(index_references()), set()
    while waiting:
        reference = waiting.pop()
        if reference not in reached:
            reached.add(reference)
            waiting += references(definition(reference), reference.partition("#")[0])
    written = {f"{file}#/$defs/{name}" for file, schema in schemas().items()
               if file not in STAND_ALONE for name in schema["$defs"]}
    assert written == reached


def test_every_message_and_every_answer_has_an_example():
    wanted = {(channel, name, part == "reply")
              for channel, entry in channels().items()
              for name, message in entry["messages"].items()
              for part in message}
    shown = {example.key for example in EXAMPLES}
    assert sorted(wanted - shown) == []


@pytest.mark.parametrize("example", EXAMPLES, ids=str)
def test_an_example_satisfies_its_schema(example):
    fault = (reply_fault if example.is_reply else message_fault)(
        example.channel, example.name, example.value)
    assert not fault, fault


# --- the two ways to hold a value against a schema find the same ---

def variations(value):
    """The value, and it with one member changed, taken away or added."""
    yield value
    if isinstance(value, list):
        for index, each in enumerate(value):
            for changed in variations(each):
                yield [*value[:index], changed, *value[index + 1:]]
        yield [*value, {"unknown": 1}]
        yield value[:-1]
    elif isinstance(value, dict):
        for key, each in value.items():
            yield {name: other for name, other in value.items() if name != key}
            for replacement in (None, 0, True, "", "x" * 2000, [], {}):
                yield value | {key: replacement}
            for changed in variations(each):
                yield value | {key: changed}
        yield value | {"unknown": 1}


def is_quickly_valid(reference, value):
    try:
        quick_check(reference)(copy.deepcopy(value))
    except fastjsonschema.JsonSchemaException:
        return False
    return True


def references_of(example):
    entry = channels()[example.channel]["messages"][example.name]
    return entry.get("reply") if example.is_reply else entry["schema"]


@pytest.mark.parametrize("example", EXAMPLES, ids=str)
def test_the_quick_check_finds_what_the_thorough_one_finds(example):
    reference = references_of(example)
    if reference is None:
        pytest.skip("only refused")
    thorough = thorough_check(reference)
    for number, value in enumerate(variations(example.value)):
        if number == 60:
            break
        assert is_quickly_valid(reference, value) == thorough.is_valid(value), value


# --- the lists in the sources ---

def source(name):
    return (ROOT / "src" / name).read_text(encoding="utf-8")


def table(text, name):
    """The rows of a table in a source: what stands between its name and the closing brace."""
    return re.search(rf"\b{name}\[\] = \{{(.*?)\n\}};", text, re.DOTALL)[1]


def names_of(channel):
    return set(channels()[channel]["messages"]) - {"other"}


def all_sources():
    return {path: path.read_text(encoding="utf-8") for path in (ROOT / "src").rglob("*.cpp")}


def test_every_kind_is_a_message():
    kinds = set(re.findall(r'\{"(\w+)", Activity', table(source("host/dispatcher.cpp"), "kinds")))
    assert kinds - {"providerRpc"} == names_of("panel")


def test_every_method_is_a_message():
    methods = set(re.findall(r'\{"(\w+)",', table(source("host/agent_proxy.cpp"), "methods")))
    assert methods == names_of("providerRpc")


def test_every_event_is_a_message():
    together = "\n".join(all_sources().values())
    written = set(re.findall(r'(?:emitPanelMessage|batch\.add)\(\s*"(\w+)"', together))
    assert written <= names_of("event")
    assert not {name for name in names_of("event") if f'"{name}"' not in together}


def test_every_route_of_the_tool_server_is_a_message():
    rows = re.findall(r'\{"(\w+)", "([^"]+)",', table(source("toolserver/routes.cpp"), "routes"))
    assert {f"{method} {path}" for method, path in rows} == names_of("toolServer") - {"OPTIONS"}


def test_every_path_of_the_agent_is_a_message():
    together = "\n".join(all_sources().values())
    asked = set(re.findall(r'"(/(?:v1/[a-z0-9/-]+|ready))[?"]', together))
    known = {name.partition(" ")[2] for name in names_of("agent")}
    assert asked == known


def test_the_tools_are_those_of_the_catalogue():
    tools = re.findall(r'\{"(browser_\w+)",', source("browser_tools/tool_catalog.cpp"))
    assert tools == schemas()["common.schema.json"]["$defs"]["toolName"]["enum"]


def test_the_faults_of_an_upload_are_those_of_the_schema():
    faults = set(re.findall(r'failure\("([^"]+)"\)', source("toolserver/drops.cpp")))
    answer = schemas()["tool-server.schema.json"]["$defs"]["uploadAnswer"]
    bodies = answer["properties"]["body"]["oneOf"]
    assert faults == set(bodies[1]["properties"]["error"]["enum"])
