#!/usr/bin/env python3
# SPDX-License-Identifier: BSD-3-Clause
"""Checks manifests against the JSON Schema.

Usage: schema_checker.py SCHEMA

Reads lines with a JSON array of one string, the text of a manifest. Answers each line with "valid", or with "refused: "
and the first error.
"""

import json
import sys

import jsonschema

with open(sys.argv[1], encoding="utf-8") as file:
    schema = json.load(file)
jsonschema.Draft202012Validator.check_schema(schema)
validator = jsonschema.Draft202012Validator(schema)

for line in sys.stdin:
    try:
        error = next(validator.iter_errors(json.loads(json.loads(line)[0])), None)
        answer = f"refused: {error.json_path}: {error.message}" if error else "valid"
    except json.JSONDecodeError as error:
        answer = f"refused: {error}"
    print(answer.replace("\n", " "), flush=True)
