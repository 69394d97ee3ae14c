#!/usr/bin/python3
"""Holds docs/api.yaml against the API's real answers, and against what the sources say that there is.

usage: api_test.py BUILD               asks tests/tools/ApiAnswers, which needs no host
       api_test.py --ask WORD... [--] [unittest's words]
                                       asks a running host: WORD... is a command that takes the words of curl, such as
                                       curl --unix-socket /run/mfhost.sock; what would change the host is left out
"""

import json
import os
import re
import subprocess
import sys
import unittest
from pathlib import Path

import jsonschema
import yaml

ROOT = Path(__file__).resolve().parent.parent.parent
DOCUMENT = yaml.safe_load((ROOT / "docs" / "api.yaml").read_text())
BASE = DOCUMENT["servers"][0]["url"]
ROLES = ["none", "view", "operate", "admin"]
METHODS = ["get", "post"]
# Those of a running host that change nothing.
HARMLESS = {"plan", "check"}

ask = []
is_real = False


def resolved(node):
    """The node itself, where it stands elsewhere in the document."""
    while "$ref" in node:
        target = DOCUMENT
        for part in node["$ref"].removeprefix("#/").split("/"):
            target = target[part]
        node = target
    return node


def validator(schema):
    """For a part of the document, whose references are into the whole."""
    return jsonschema.Draft202012Validator(schema | {"components": DOCUMENT["components"]})


def operations():
    """(path, method, operation, parameters) of each."""
    for path, item in DOCUMENT["paths"].items():
        for method in METHODS:
            if method in item:
                parameters = item.get("parameters", []) + item[method].get("parameters", [])
                yield path, method, item[method], [resolved(each) for each in parameters]


def target(path, parameters, names=()):
    """With the examples for what stands in the path, and for these parameters of the query."""
    for each in parameters:
        if each["in"] == "path":
            path = path.replace("{" + each["name"] + "}", str(each["example"]))
    query = [f"{each['name']}={each['example']}" for each in parameters
             if each["name"] in names or each.get("x-always")]
    return path + ("?" + "&".join(query) if query else "")


def body_of(operation):
    """Schema and example of an action's body."""
    content = resolved(operation["requestBody"])["content"]["application/json"]
    return content["schema"], content["example"]


def send(method, path, body=None, content_type="application/json", role="admin"):
    """Status and body of the answer."""
    words = ask + ["--silent", "--request", method.upper(), "--write-out", "\n%{http_code}"]
    if body is not None:
        words += ["--header", f"Content-Type: {content_type}", "--data-binary", body]
    words.append(BASE + path)
    answer = subprocess.run(words, capture_output=True, check=False, timeout=60, env=os.environ | {"API_ROLE": role})
    text, _, status = answer.stdout.decode().rpartition("\n")
    if not status.isdigit():
        raise AssertionError(f"{words} answered {answer.stdout!r}, {answer.stderr!r}")
    return int(status), text


class Document(unittest.TestCase):
    """The document by itself, and beside the sources."""

    def test_each_schema_is_one(self):
        for name, schema in DOCUMENT["components"]["schemas"].items():
            with self.subTest(name):
                jsonschema.Draft202012Validator.check_schema(schema)

    def test_each_reference_leads_somewhere(self):
        def walk(node):
            if isinstance(node, dict):
                if "$ref" in node:
                    resolved(node)
                node = list(node.values())
            if isinstance(node, list):
                for each in node:
                    walk(each)
        walk(DOCUMENT)

    def test_each_operation_is_whole(self):
        self.assertTrue(DOCUMENT["openapi"].startswith("3.1."))
        names = set()
        for path, method, operation, parameters in operations():
            with self.subTest(path=path, method=method):
                self.assertIn(operation["x-role"], ROLES[1:])
                self.assertNotIn(operation["operationId"], names)
                names.add(operation["operationId"])
                self.assertIn("default", operation["responses"])
                self.assertEqual(method == "post", "202" in operation["responses"])
                described = {each["name"] for each in parameters if each["in"] == "path"}
                self.assertEqual(set(re.findall(r"{(\w+)}", path)), described)

    def test_each_example_is_right(self):
        for path, method, operation, _ in operations():
            if method == "post":
                schema, example = body_of(operation)
                with self.subTest(path):
                    validator(schema).validate(example)

    def test_the_sources_have_the_same_resources(self):
        source = (ROOT / "mfhost" / "api" / "ApiHandler.cpp").read_text()
        table = source[source.index("s_resources{"):source.index("return s_resources")]
        found = {}
        for method, path, rest in re.findall(r"\b(get|post)(?:Stream|Past)?\(\s*\{([^}]*)\},?(.*?)\)(?:,\n(?=        (?:get|post))|,\n    \})",
                                             table, re.S):
            words = [word.strip().strip('"') for word in path.split(",")]
            known = re.findall(r"\{([^{}]*)\}$", rest.strip())
            role = re.search(r"\b(Operate|Admin)\b", rest)
            found[("/" + "/".join("{}" if word == "s_name" else word for word in words), method)] = (
                role.group(1).lower() if role else "view", set(re.findall(r'"(\w+)"', known[0])) if known else set())
        documented = {}
        for path, method, operation, parameters in operations():
            if method == "get":
                known = {each["name"] for each in parameters if each["in"] == "query"}
            else:
                known = set(body_of(operation)[0]["properties"]) - {"request", "timeoutMs"}
            documented[(re.sub(r"{\w+}", "{}", path), method)] = (operation["x-role"], known)
        self.assertEqual(documented, found)

    def test_the_sources_have_the_same_error_codes(self):
        source = (ROOT / "mfhost" / "api" / "ApiFault.cpp").read_text()
        codes = set(re.findall(r'\{"([a-z-]+)", (\d+)\}', source))
        error = DOCUMENT["components"]["schemas"]["Error"]["properties"]["error"]
        self.assertEqual({code for code, _ in codes}, set(error["properties"]["code"]["enum"]))
        table = DOCUMENT["components"]["responses"]["Error"]["description"]
        for status, text in re.findall(r"^\| (\d+) \| (.*) \|$", table, re.M):
            for code in re.findall(r"`([a-z]+(?:-[a-z]+)*)`", text):
                with self.subTest(code):
                    self.assertIn((code, status), codes)
                    codes.discard((code, status))
        self.assertEqual(set(), codes, "these have no row in the table")


class Answers(unittest.TestCase):
    """What is answered, beside the document."""

    def check(self, operation, status, text):
        """The answer is one of those that the operation has."""
        responses = operation["responses"]
        response = resolved(responses.get(str(status), responses["default"]))
        if str(status) not in responses:
            self.assertGreaterEqual(status, 400, text)
        (content_type, content), = response["content"].items()
        validator(content["schema"]).validate(json.loads(text) if content_type == "application/json" else text)

    def error(self, code, status, answer):
        self.assertEqual(status, answer[0], answer[1])
        error = json.loads(answer[1])
        validator(DOCUMENT["components"]["schemas"]["Error"]).validate(error)
        self.assertEqual(code, error["error"]["code"])
        return error["error"]

    def test_each_operation_answers_as_described(self):
        for path, method, operation, parameters in operations():
            if is_real and method == "post" and operation["operationId"] not in HARMLESS:
                continue
            with self.subTest(path=path, method=method):
                body = json.dumps(body_of(operation)[1]) if method == "post" else None
                status, text = send(method, target(path, parameters), body)
                self.check(operation, status, text)
                if not is_real:
                    self.assertEqual(200, status, text)

    def test_each_parameter_is_taken(self):
        for path, method, operation, parameters in operations():
            for each in parameters:
                if each["in"] == "query":
                    with self.subTest(path=path, parameter=each["name"]):
                        status, text = send(method, target(path, parameters, [each["name"]]))
                        self.check(operation, status, text)
                        if not is_real:
                            self.assertEqual(200, status, text)

    def test_unknown_parameters_and_members_are_refused(self):
        for path, method, _, parameters in operations():
            with self.subTest(path=path, method=method):
                place = target(path, parameters)
                self.error("request-invalid", 400, send(method, place + ("&" if "?" in place else "?") + "nobody=1", None if method == "get" else "{}"))
                if method == "post":
                    answer = self.error("request-invalid", 400, send(method, place, '{"nobody":1}'))
                    self.assertIn('"nobody"', answer["text"])

    def test_members_of_another_type_are_refused(self):
        wrong = {"string": [1, None, []], "integer": ["1", 1.5, None], "array": [1, None], "boolean": [1, "true", None], "object": [1, "a"]}
        for path, method, operation, parameters in operations():
            if method != "post":
                continue
            schema, example = body_of(operation)
            for name, member in schema["properties"].items():
                kinds = resolved(member).get("type", "string")
                if not isinstance(kinds, str) or name == "parameters":
                    continue
                for value in wrong[kinds]:
                    with self.subTest(path=path, member=name, value=value):
                        answer = self.error("request-invalid", 400,
                                            send(method, target(path, parameters), json.dumps(example | {name: value})))
                        self.assertIn(f'"{name}"', answer["text"])

    def test_missing_members_are_named(self):
        for path, method, operation, parameters in operations():
            if method != "post":
                continue
            schema, example = body_of(operation)
            for name in schema.get("required", []):
                with self.subTest(path=path, member=name):
                    rest = {key: value for key, value in example.items() if key != name}
                    answer = self.error("request-invalid", 400,
                                        send(method, target(path, parameters), json.dumps(rest)))
                    self.assertIn(f'"{name}" is missing', answer["text"])

    def test_other_methods_are_refused(self):
        for path, item in DOCUMENT["paths"].items():
            parameters = [resolved(each) for each in item.get("parameters", [])]
            for method in set(METHODS + ["put", "delete"]) - set(item):
                with self.subTest(path=path, method=method):
                    self.error("method-not-allowed", 405, send(method, target(path, parameters)))

    def test_bodies_are_json(self):
        self.error("media-type", 415, send("post", "/api/v1/plan", "{}", "application/x-www-form-urlencoded"))
        self.error("request-invalid", 400, send("post", "/api/v1/plan", "{"))
        self.error("request-invalid", 400, send("post", "/api/v1/plan", "[]"))
        self.error("too-large", 413, send("post", "/api/v1/plan", " " * 65537))

    def test_what_is_not_there_is_told_with_what_is(self):
        error = self.error("not-found", 404, send("get", "/api/v1/drivrs"))
        self.assertEqual(["/api/v1/drivers"], error["nearest"])
        self.error("driver-unknown", 404, send("get", "/api/v1/drivers/nobody%0a%ff"))
        self.error("not-found", 404, send("get", "/api/v1/history/999999"))

    def test_each_operation_needs_its_role(self):
        for path, method, operation, parameters in operations():
            body = json.dumps(body_of(operation)[1]) if method == "post" else None
            least = ROLES.index(operation["x-role"])
            with self.subTest(path=path, method=method):
                self.error("not-allowed", 403, send(method, target(path, parameters), body, role=ROLES[least - 1]))
                self.assertEqual(200, send(method, target(path, parameters), body, role=ROLES[least])[0])

    def test_fid_that_reaches_nobody_has_its_reason(self):
        error = self.error("fid-undelivered", 409, send("post", "/api/v1/fid", '{"fid":"AXSI1.MOVE","wait":"taken"}'))
        self.assertEqual(("no-such-driver", ["AXIS1"]), (error["reason"], error["nearest"]))


def main():
    global ask, is_real
    words = sys.argv[1:]
    if words[:1] == ["--ask"]:
        end = words.index("--") if "--" in words else len(words)
        ask, rest, is_real = words[1:end], words[end + 1:], True
        for name in ("test_each_operation_needs_its_role", "test_fid_that_reaches_nobody_has_its_reason"):
            test = getattr(Answers, name)
            setattr(Answers, name, unittest.skip("it is not asked of a running host")(test))
    elif words:
        ask, rest = [str(Path(words[0]) / "bin" / "api_answers")], words[1:]
    else:
        sys.exit(__doc__)
    unittest.main(argv=[sys.argv[0]] + rest)


if __name__ == "__main__":
    main()
