"""The examples of docstrings."""

import doctest
import importlib
import pkgutil

import numpy as np
import pytest

import vxl

MODULES = [module.name for module in pkgutil.iter_modules(vxl.__path__) if module.name != "_vxl"]


@pytest.mark.parametrize("name", ["vxl", *(f"vxl.{module}" for module in MODULES)])
def test_examples_of_docstrings(survey, name):
    try:
        module = importlib.import_module(name)
    except ImportError as error:
        pytest.skip(f"{name} needs {error.name}")
    failed, _ = doctest.testmod(module, extraglobs={"np": np, "vxl": vxl})
    assert failed == 0
