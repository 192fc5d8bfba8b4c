"""The pages in Markdown: their links."""

import re
from urllib.parse import urlsplit


def links_to_nothing(page):
    """The relative links of a page behind which there is no file."""
    links = re.findall(r"\]\(([^)\s]+)\)", page.read_text(encoding="utf-8"))
    return [link for link in links if not urlsplit(link).scheme and not (page.parent / urlsplit(link).path).exists()]
