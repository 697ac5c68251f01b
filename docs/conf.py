"""Sphinx's settings for the site. docs/sources.py writes its pages."""

import os
import re
import sys
from pathlib import Path

import furo
from pygments.lexers.special import TextLexer
from sphinx import addnodes

DOCS = Path(__file__).resolve().parent
sys.path.insert(0, str(DOCS))
import sources  # noqa: E402

project = "Tarn"
release = os.environ.get("TARN_RELEASE", "")
html_title = f"Tarn {release}".strip()
language = "en"
extensions = ["myst_parser", "sphinx_copybutton", "sphinx_inline_tabs"]
myst_enable_extensions = ["colon_fence"]
myst_heading_anchors = 4
copybutton_prompt_text = r"\$ |> "
copybutton_prompt_is_regexp = True

# Names in signatures that are not Tarn's.
nitpicky = True
nitpick_ignore_regex = [
    ("c:identifier", r"NULL|FILE|[a-z]\w*"),
    ("cpp:identifier", r"std|std::.*|detail.*|FILE|INT64_\w+|DBL_MAX|k[A-Z]\w*"),
    ("cpp:identifier", r"Self|View|Item|Value|Pieces"),
    (
        "cpp:identifier",
        r"(View::)?Iterator|iterator|Element|stdout|Tarn[FHS]\w+|TARN_\w+|\w+_get\w+",
    ),
]
suppress_warnings = ["myst.header"]

html_theme = "furo"
html_static_path = ["site/static"]
html_css_files = ["site.css"]
html_js_files = ["summaries.js", "site.js"]
html_search_scorer = str(DOCS / "site/scorer.js")
html_show_sourcelink = html_copy_source = html_show_copyright = False
html_show_search_summary = False  # a browser does not let a page on the disk read another
html_theme_options = {"top_of_page_button": None}
pygments_style = "default"
pygments_dark_style = "github-dark"

NAVIGATION: dict[str, str] = {}  # by folder


def add_theme_files(app):
    """Adds complete copies of Furo's styles and script. Debian's Furo loads part of its styles from
    a web server, has no script that a browser can run, and is dark only on demand."""
    theme = Path(furo.__file__).parent / "theme/furo/static"
    styles = (theme / "styles/furo.css").read_text()
    if normalize := re.match(r"@import url\(/(.*?)\);", styles):
        dark = re.search(r'body\[data-theme="dark"\] (\{.*?\})', styles, re.DOTALL)[1]
        dark = f'@media (prefers-color-scheme: dark) {{ body:not([data-theme="light"]) {dark} }}'
        styles = styles.replace(normalize[0], Path("/usr/share", normalize[1]).read_text())
        scripts = [
            (theme / f"scripts/{name}.js").read_text() for name in ("gumshoe-patched", "furo")
        ]
        static = Path(app.srcdir, "static")
        (static / "styles").mkdir()
        (static / "scripts").mkdir()
        (static / "styles/furo.css").write_text(f"{styles}@media not print {{ {dark} }}\n")
        (static / "scripts/furo.js").write_text(scripts[0] + scripts[1].partition("\n")[2])
    app.config.html_static_path.append(f"{app.srcdir}/static")


def mark_brackets(_app, doctree):
    """The style sheet lets a signature break after the "<" of a template."""
    for mark in doctree.findall(addnodes.desc_sig_punctuation):
        if mark.astext() == "<":
            mark["classes"].append("bracket")


def share_navigation(app, page, _template, context, _doctree):
    """Makes the navigation once for all pages of a folder that it does not list.

    It takes as long as everything else on a page. A page that it lists is marked there.
    """
    listed = {name for names in app.env.toctree_includes.values() for name in names}
    if page in listed:
        return
    make = context["toctree"]
    folder = page.rpartition("/")[0]

    def share(**options):
        if folder not in NAVIGATION:
            NAVIGATION[folder] = make(**options)
        return NAVIGATION[folder]

    context["toctree"] = share


def setup(app):
    app.add_lexer("haproxy", TextLexer)
    app.connect("builder-inited", lambda app: sources.write(DOCS.parent, Path(app.srcdir)))
    app.connect("builder-inited", add_theme_files)
    app.connect("doctree-read", mark_brackets)
    app.connect("html-page-context", share_navigation, priority=100)  # Furo uses it at 500
