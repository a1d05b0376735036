"""Reads the API document, docs/openapi.yaml."""

import pathlib

import yaml

FILE = pathlib.Path(__file__).resolve().parents[2] / "docs/openapi.yaml"
API = yaml.safe_load(FILE.read_text())
PATH = API["paths"]["/rule"]
METHODS = ("GET", "PUT", "POST", "DELETE")


def read_responses():
    """Yields the method, or None for any other, and the status of each documented answer, with what the
    document says about its body."""
    operations = {method: PATH[method.lower()]["responses"] for method in METHODS}
    operations[None] = {"200": PATH["x-other-methods"], "401": operations["GET"]["401"]}
    for method, responses in operations.items():
        for status, response in responses.items():
            shared = response.get("$ref", "").split("/")[-1]
            response = API["components"]["responses"].get(shared, response)
            yield (method, status), response.get("content", {}).get("application/json", {})


RESPONSES = dict(read_responses())
