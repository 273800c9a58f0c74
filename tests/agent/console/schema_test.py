#!/usr/bin/python3
"""The generated schemas against the agent: valid JSON Schema and manifests,
the same verdicts as lint over a table of values, and the same keys as the
agent's code reads.

Usage: schema_test.py <velmo-agent> <source tree>
"""
import json
import os
import plistlib
import re
import subprocess
import sys
import tempfile
from pathlib import Path

from jsonschema import Draft7Validator

agent, source = sys.argv[1], Path(sys.argv[2])
domains = ["com.marvenith.velmo-agent", "com.marvenith.velmo-notifier", "com.marvenith.velmo"]
failures = []


def fail(text):
    failures.append(text)
    print("FAIL: " + text)


def run(*arguments):
    return subprocess.run([agent, *arguments], capture_output=True, text=True, check=False)


schemas = {domain: json.loads(run("schema", "--domain", domain).stdout) for domain in domains}
for domain, schema in schemas.items():
    Draft7Validator.check_schema(schema)
    manifest = plistlib.loads(run("schema", "--format", "manifest", "--domain", domain).stdout.encode())
    for key in ["pfm_domain", "pfm_title", "pfm_description", "pfm_format_version",
                "pfm_platforms", "pfm_subkeys"]:
        if key not in manifest:
            fail(f"{domain}: manifest without {key}")
    names = [subkey["pfm_name"] for subkey in manifest["pfm_subkeys"]]
    payload = [name for name in names if name.startswith("Payload")]
    if names[:len(payload)] != payload or names[len(payload):] != list(
            sorted(schema["properties"], key=lambda k: schema["properties"][k]["property_order"])):
        fail(f"{domain}: manifest keys {names}")
print("schemas: valid JSON Schema (draft 7); manifests hold the pfm_ keys, Payload keys first")

# Values an administrator might write, by the schema's type; each is judged by
# the schema and by lint, and the verdicts must agree.
window = {"days": ["mon"], "start": {"hour": 9, "minute": 0}, "end": {"hour": 17, "minute": 0}}
pools = {
    "boolean": [True, False, "yes", 5, ["x"]],
    "number": [1, 60, 3600.5, 86400, 90000, 0, -5, "abc"],
    "integer": [0, 20, 100, 101, -1, 2.5, "20"],
    "string": ["hello", 5],
    "array": [["firefox", "zoom.us"], [], ["--config=/tmp/x"], ["ok", 3], "firefox",
              [window], [dict(window, end={"hour": 25, "minute": 0})], [dict(window, days=[])]],
}
checked = 0
with tempfile.TemporaryDirectory() as folder:
    for domain, schema in schemas.items():
        for key, property_schema in schema["properties"].items():
            validator = Draft7Validator(property_schema)
            values = list(pools[property_schema["type"]]) + list(property_schema.get("enum", []))
            if "enum" in property_schema:
                values.append("bogus")
            for value in values:
                plist = Path(folder) / f"{domain}.plist"
                plist.write_bytes(plistlib.dumps({key: value}))
                result = run("lint", "--json", str(plist))
                findings = [f for f in json.loads(result.stdout)["diagnostics"] if f["key"] == key]
                errors = [f for f in findings if f["severity"] == "error"]
                allowed = validator.is_valid(value)
                checked += 1
                if allowed and errors:
                    fail(f"{key} = {value!r}: the schema allows it, lint says {errors}")
                if not allowed and not findings:
                    fail(f"{key} = {value!r}: the schema refuses it, lint says nothing")
print(f"round trip: {checked} values of {sum(len(s['properties']) for s in schemas.values())} keys,"
      " the schema's verdict and lint's agree")

# Every key the agent's code names is in the table, and every key of the table is named.
literal = re.compile(r'"([A-Z][a-z]+[A-Z][A-Za-z]*)"')
# Loggers are named after their classes.
loggers = re.compile(r'(?:[Ll]ogger_?|CustomLogger)\s*[{(]\s*"([A-Z]\w+)"')
state = set(literal.findall((source / "agent/run/PlistManager.cpp").read_text()))
state |= set(literal.findall((source / "agent/run/PlistKey.h").read_text()))
named = set()
for folder in ["agent/policy", "agent/run", "agent/runner", "agent/items", "agent/maintenance",
               "agent/main", "agent/deferrals", "mdm"]:
    for path in (source / folder).rglob("*.[ch]*"):
        text = path.read_text()
        named |= set(literal.findall(text)) - set(loggers.findall(text))
named = {k for k in named if k not in state and not k.startswith("Payload")}
table = {key for schema in schemas.values() for key, p in schema["properties"].items()
         if "not read by this version" not in p["description"]}
for key in sorted(named - table):
    fail(f"the agent reads {key}, which the key table lacks")
for key in sorted(table - named):
    fail(f"the key table holds {key}, which nothing reads")
print(f"keys: {len(table)} of the table read by the agent's code, and no other")
sys.exit(1 if failures else 0)
