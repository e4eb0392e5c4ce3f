#!/usr/bin/python3
"""validate_json.py SCHEMA DOCUMENTS - says what the schema finds wrong.

DOCUMENTS has a line for each: an object of one command with what it printed.
"""
import json
import sys

from jsonschema import Draft202012Validator


def main(schema_path, documents_path):
    with open(schema_path, encoding="utf-8") as file:
        schema = json.load(file)
    Draft202012Validator.check_schema(schema)
    validator = Draft202012Validator(schema)
    wrong = 0
    with open(documents_path, encoding="utf-8") as file:
        for line in file:
            for error in validator.iter_errors(json.loads(line)):
                print(f"{error.json_path}: {error.message}\n  in {line}", end="")
                wrong += 1
    return 1 if wrong else 0


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))
