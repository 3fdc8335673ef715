#!/usr/bin/env python3
"""Checks what valmere prints with --json against docs/formats/cli.schema.json.

usage: cli_json_test.py SCHEMA VALMERE VALMERED
"""
import json
import os
import subprocess
import sys
import tempfile

import jsonschema

PATIENCE = 60


def check(schema, name, document):
    definition = {"$ref": "#/$defs/" + name, "$defs": schema["$defs"]}
    jsonschema.Draft202012Validator(definition).validate(document)


def main(schema_path, valmere, valmered):
    with open(schema_path, encoding="utf-8") as file:
        schema = json.load(file)
    jsonschema.Draft202012Validator.check_schema(schema)
    with tempfile.TemporaryDirectory(prefix="valmere-test-") as folder:
        socket = os.path.join(folder, "PRN1")
        environment = dict(os.environ, VALMERE_SOCKET=socket)
        started = []

        def start(*words):
            process = subprocess.Popen(words, env=environment, stdout=subprocess.PIPE,
                                       stderr=subprocess.PIPE)
            started.append(process)
            return process

        def run(*words, status=0):
            done = subprocess.run([valmere, *words], env=environment, check=False,
                                  stdout=subprocess.PIPE, timeout=PATIENCE)
            assert done.returncode == status, words
            return done.stdout.decode("utf-8")

        try:
            service = start(valmered, "--root", os.path.join(folder, "root"), "--socket", socket)
            service.stdout.readline()
            publisher = start(valmere, "--json", "publish", "--hold", "Motion/Speed=42",
                              b"Motion/Raw=\xff\xfe")
            publisher.stderr.readline()

            for words in (["list"], ["list", "Motion/*"], ["get", "Speed", "Raw"],
                          ["get", "--default", "-", "no such"]):
                check(schema, "properties", json.loads(run("--json", *words)))
            raw = json.loads(run("--json", "get", "Raw"))[0]
            assert raw["value_base64"] == "//4=" and "value" not in raw, raw
            check(schema, "property", json.loads(run("--json", "info", "Speed")))
            check(schema, "ping", json.loads(run("--json", "ping", "--count", "2")))
            for line in run("--json", "monitor", "--hex", "--count", "2").splitlines():
                check(schema, "message", json.loads(line))
            exported = run("export").splitlines()
            for line in exported:
                check(schema, "exported", json.loads(line))
            assert any("value_base64" in json.loads(line) for line in exported)

            watch = start(valmere, "--json", "watch", "--initial", "--count", "3", "Motion/*")
            for _ in range(2):
                check(schema, "property", json.loads(watch.stdout.readline()))
            run("set", "Speed", "43")
            check(schema, "property", json.loads(publisher.stdout.readline()))
            change = json.loads(watch.stdout.readline())
            check(schema, "property", change)
            assert change["value"] == "43", change

            damaged = os.path.join(folder, "damaged.ini")
            with open(damaged, "wb") as file:
                file.write(b"A:B|Motion:Raw=\xff\nrubbish\nA:C|Motion:Speed=42\nxx")
            for command, end in (("show", "propfile_end"), ("rescue", "rescue_end")):
                lines = run("--json", "propfile", command, damaged, status=1 if command == "show" else 0)
                *good, last = [json.loads(line) for line in lines.splitlines()]
                assert len(good) == (3 if command == "show" else 2), good
                for line in good:
                    check(schema, "propfile_line", line)
                check(schema, end, last)

            for wrong in ({}, {"value": 1}, [1]):
                try:
                    check(schema, "property", wrong)
                except jsonschema.ValidationError:
                    continue
                raise AssertionError(f"the schema takes {wrong}")
        finally:
            for process in reversed(started):
                process.terminate()
                process.wait(timeout=PATIENCE)
                process.stdout.close()
                process.stderr.close()


if __name__ == "__main__":
    main(*sys.argv[1:])
