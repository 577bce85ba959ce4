#!/usr/bin/python3
"""The JSON Schema of `zql-policy schema`, as an editor's validator reads it.

checkjsonschema.py ZQL_POLICY EXAMPLE_POLICY
"""
import copy
import json
import subprocess
import sys

import jsonschema

program, example_path = sys.argv[1], sys.argv[2]
printed = subprocess.run([program, "schema"], check=True, capture_output=True).stdout
schema = json.loads(printed)
jsonschema.Draft202012Validator.check_schema(schema)
validator = jsonschema.Draft202012Validator(schema)

with open(example_path, encoding="utf-8") as example_file:
    example = json.load(example_file)
errors = [error.message for error in validator.iter_errors(example)]
if errors:
    sys.exit(f"the example is refused: {errors}")


def refused(change, why):
    document = copy.deepcopy(example)
    change(document)
    if validator.is_valid(document):
        sys.exit(f"accepted although {why}")


def setter(*path_and_value):
    *path, value = path_and_value

    def change(document):
        at = document
        for key in path[:-1]:
            at = at[key]
        at[path[-1]] = value
    return change


refused(setter("login-local", "login_state", "Admin"), "login_state is Admin")
refused(setter("login-local", "login_state", 5), "login_state is 5")
refused(setter("account-lockout", "deny", 5), "deny is a plain number")
refused(setter("account-lockout", "deny", [True, 1e30]), "deny is 1e30")
refused(setter("account-lockout", "deny", [True, 18446744073709551615]), "deny is 2^64 - 1")
refused(setter("password-policy", "complexity", "x"), "complexity is a string")
refused(setter("password-policy", "complexity", "minlenx", [True, 8]), "minlenx is unknown")
refused(lambda d: d["password-policy"].pop("complexity"), "complexity is missing")
refused(setter("user-creation-policy", "USERS_GID", 4294967296), "USERS_GID is 2^32")
refused(setter("user-creation-policy", "USERGROUPS", "no"), "USERGROUPS is a word")
refused(setter("user-creation-policy", "DSHELL", "bin/sh"), "DSHELL is relative")
refused(setter("user-creation-policy", "DSHELL", "/bin/sh\nx"), "DSHELL holds a line feed")
refused(setter("console-policy", "console-tty-lock", "off"), "a switch is a word")
refused(setter("firewall", {}), "firewall is no module")
refused(setter("version", 2), "the version is 2")
refused(lambda d: d.pop("format"), "the format is missing")
