"""Settings of the documentation build (tools/docs). The package must be importable: it documents itself."""

import pathlib
import sys

sys.path.insert(0, str(pathlib.Path(__file__).parent / "_extensions"))

project = "Tarn"
author = "The Tarn developers"
copyright = "the Tarn developers, MIT license"  # noqa: A001 - Sphinx wants the name
extensions = [
    "myst_parser",
    "python_reference",
    "device_features",
    "performance_plot",
    "sphinx.ext.autodoc",  # the modules in Python have no markers in their docstrings
    "sphinx.ext.napoleon",
]
autodoc_typehints_format = "short"
napoleon_google_docstring = False
exclude_patterns = ["_extensions", "requirements.txt"]
html_theme = "furo"
html_title = "Tarn"
myst_heading_anchors = 3
myst_enable_extensions = ["colon_fence", "deflist"]
highlight_language = "none"
