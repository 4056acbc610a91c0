"""The examples of docstrings and of docs/python.md."""

import contextlib
import doctest
import importlib
import io
import pkgutil
import re
import warnings

import numpy as np
import pytest

import vxl

from conftest import ROOT

MODULES = [module.name for module in pkgutil.iter_modules(vxl.__path__) if module.name != "_vxl"]


@pytest.mark.parametrize("name", ["vxl", *(f"vxl.{module}" for module in MODULES)])
def test_examples_of_docstrings(survey, name):
    try:
        module = importlib.import_module(name)
    except ImportError as error:
        pytest.skip(f"{name} needs {error.name}")
    failed, _ = doctest.testmod(module, extraglobs={"np": np, "vxl": vxl})
    assert failed == 0


@pytest.mark.parametrize("document", ["python.md"])
def test_code_of_documents_prints_what_they_say(survey, document):
    """A block "text" is the output of the block "python" before it."""
    pytest.importorskip("pandas")
    text = (ROOT / "docs" / document).read_text()
    blocks = re.findall(r"```python\n(.*?)```(?:\n\n```text\n(.*?)```)?", text, re.DOTALL)
    assert len(blocks) == text.count("```python") > 0
    names = {}
    for code, expected in blocks:
        printed = io.StringIO()
        with contextlib.redirect_stdout(printed), warnings.catch_warnings():
            warnings.simplefilter("error")
            exec(compile(code, document, "exec"), names)
        if expected:
            assert printed.getvalue() == expected, code
