#!/usr/bin/env python3
"""Validates the surveys in the files on its command line against docs/survey.schema.json; a file
"-" is standard input. Prints what is wrong and where; status 1 when something is."""

import json
import pathlib
import sys

import jsonschema

schema_path = pathlib.Path(__file__).parents[2] / "docs" / "survey.schema.json"
schema = json.loads(schema_path.read_text())
jsonschema.Draft7Validator.check_schema(schema)
validator = jsonschema.Draft7Validator(schema)

if len(sys.argv) < 2:
    sys.exit("usage: schema_test.py FILE...")
faults = 0
for name in sys.argv[1:]:
    document = json.loads(sys.stdin.read() if name == "-" else pathlib.Path(name).read_text())
    for error in validator.iter_errors(document):
        faults += 1
        print(f"{name}: {error.json_path}: {error.message[:300]}")
        for cause in error.context:
            print(f"    {cause.json_path}: {cause.message[:200]}")
print(f"{len(sys.argv) - 1} file(s), {faults} fault(s)")
sys.exit(faults > 0)
