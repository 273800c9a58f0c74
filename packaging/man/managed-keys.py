#!/usr/bin/env python3
"""Writes the manual page's source with its key section made from the agent's
own key table, as `velmo-agent schema` prints it, so the page can't drift from
what the agent reads.

Usage: managed-keys.py TEMPLATE OUTPUT VERSION AGENT DOMAIN...
TEMPLATE is scdoc with @VERSION@ and a line @KEYS@ to fill in; AGENT is the
built velmo-agent, asked for each DOMAIN's schema in turn.
"""
import json
import subprocess
import sys


def escape(text):
    # scdoc reads * and _ as bold and underline, and \ as their escape.
    return text.replace("\\", "\\\\").replace("*", "\\*").replace("_", "\\_")


def type_of(schema):
    kind = schema.get("type", "value")
    if kind != "array":
        return "Boolean" if kind == "boolean" else kind
    items = schema.get("items", {})
    if items.get("type") == "object":
        return "array of windows"
    return "array of %ss" % items.get("type", "value")


def value(default):
    if isinstance(default, bool):
        return "true" if default else "false"
    if isinstance(default, float) and default.is_integer():
        return str(int(default))
    return str(default)


def key_entry(name, schema):
    facts = [type_of(schema)]
    if "default" in schema:
        facts.append("default " + value(schema["default"]))
    if "minimum" in schema and "maximum" in schema:
        facts.append("%s to %s" % (value(schema["minimum"]), value(schema["maximum"])))
    elif "exclusiveMinimum" in schema:
        facts.append("above " + value(schema["exclusiveMinimum"]))
    lines = ["*%s* (%s)" % (escape(name), escape(", ".join(facts)))]
    text = schema.get("title", "")
    description = schema.get("description", "")
    if description:
        text = "%s. %s" % (text, description) if text else description
    if "enum" in schema:
        text += " One of: %s." % ", ".join(value(v) for v in schema["enum"])
    pattern = schema.get("items", {}).get("pattern")
    if pattern:
        text += " Each ID matches %s." % pattern
    lines.append("\t" + escape(text.strip()))
    return lines


def key_section(schemas):
    out = []
    for schema in schemas:
        domain = schema.get("__preferencedomain")
        properties = schema.get("properties")
        if not domain or not isinstance(properties, dict) or not properties:
            sys.exit("managed-keys.py: a schema without a domain or keys")
        out += ["## %s" % escape(domain), ""]
        # Each key's property_order is its place in the key table.
        names = sorted(properties, key=lambda k: properties[k].get("property_order", 0))
        for name in names:
            out += key_entry(name, properties[name]) + [""]
    return out


def main(argv):
    if len(argv) < 6:
        sys.exit(__doc__)
    template, output, version, agent = argv[1:5]
    schemas = []
    for domain in argv[5:]:
        printed = subprocess.run([agent, "schema", "--domain", domain], check=True,
                                 stdout=subprocess.PIPE, text=True).stdout
        schemas.append(json.loads(printed))
    with open(template, encoding="utf-8") as f:
        lines = f.read().replace("@VERSION@", version).split("\n")
    if lines.count("@KEYS@") != 1:
        sys.exit("managed-keys.py: the template needs one @KEYS@ line")
    at = lines.index("@KEYS@")
    lines[at:at + 1] = key_section(schemas)
    with open(output, "w", encoding="utf-8") as f:
        f.write("\n".join(lines))


if __name__ == "__main__":
    main(sys.argv)
