#!/usr/bin/env python3
"""The text of a document as other software reads it, for comparison with the extraction
helper's own reading.

  independent_text.py presentation WORKDIR FILE
      LibreOffice converts FILE to ODF in WORKDIR (with its own profile there: LibreOffice
      refuses a second instance on one profile); the paragraphs of content.xml are printed,
      one a line, in document order.
  independent_text.py epub FILE
      META-INF/container.xml -> the package file -> its spine; each spine document stripped of
      its markup by html.parser, printed in spine order, a form feed line before each.

Exit status 2 when the reading could not be made (LibreOffice missing, failed or too slow)."""

import html.parser
import os
import posixpath
import signal
import subprocess
import sys
import urllib.parse
import xml.etree.ElementTree as ET
import zipfile

TEXT_NS = "urn:oasis:names:tc:opendocument:xmlns:text:1.0"
PARAGRAPHS = {"{%s}p" % TEXT_NS, "{%s}h" % TEXT_NS}
SOFFICE_SECONDS = 180


def paragraph_text(element):
    """A paragraph's characters with its spaces, tabs and line breaks as characters."""
    parts = [element.text or ""]
    for child in element:
        tag = child.tag
        if tag == "{%s}s" % TEXT_NS:
            parts.append(" " * int(child.get("{%s}c" % TEXT_NS, "1")))
        elif tag == "{%s}tab" % TEXT_NS:
            parts.append("\t")
        elif tag == "{%s}line-break" % TEXT_NS:
            parts.append("\n")
        elif tag not in PARAGRAPHS:
            parts.append(paragraph_text(child))
        parts.append(child.tail or "")
    return "".join(parts)


def odf_paragraphs(element, out):
    for child in element:
        if child.tag in PARAGRAPHS:
            out.append(paragraph_text(child))
        odf_paragraphs(child, out)  # paragraphs inside paragraphs: notes, frames


def presentation(workdir, path):
    os.makedirs(workdir, exist_ok=True)
    profile = "file://" + os.path.abspath(os.path.join(workdir, "lo-profile"))
    command = ["soffice", "-env:UserInstallation=" + profile, "--headless", "--convert-to", "odp",
               "--outdir", workdir, path]
    try:
        # A session of its own, so that a conversion that hangs is stopped with the programs
        # soffice starts under it.
        office = subprocess.Popen(command, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL,
                                  start_new_session=True)
    except OSError as error:
        print("soffice: %s" % error, file=sys.stderr)
        return 2
    try:
        status = office.wait(timeout=SOFFICE_SECONDS)
    except subprocess.TimeoutExpired:
        os.killpg(office.pid, signal.SIGKILL)
        office.wait()
        print("soffice took more than %d seconds" % SOFFICE_SECONDS, file=sys.stderr)
        return 2
    if status != 0:
        print("soffice failed (%d)" % status, file=sys.stderr)
        return 2
    converted = os.path.join(workdir, os.path.splitext(os.path.basename(path))[0] + ".odp")
    if not os.path.exists(converted):
        print("soffice wrote no %s" % converted, file=sys.stderr)
        return 2
    with zipfile.ZipFile(converted) as odp:
        root = ET.fromstring(odp.read("content.xml"))
    out = []
    odf_paragraphs(root.find("{urn:oasis:names:tc:opendocument:xmlns:office:1.0}body"), out)
    for paragraph in out:
        print(paragraph)
    return 0


class Stripper(html.parser.HTMLParser):
    HIDDEN = {"script", "style", "head", "title"}
    # Tags that end a word; inline ones (span, a, em ...) may fall inside a word.
    BLOCKS = {"address", "article", "aside", "blockquote", "body", "br", "caption", "dd", "div",
              "dl", "dt", "figcaption", "figure", "footer", "h1", "h2", "h3", "h4", "h5", "h6",
              "header", "hr", "li", "main", "nav", "ol", "p", "pre", "section", "table", "td",
              "th", "tr", "ul"}

    def __init__(self):
        super().__init__(convert_charrefs=True)
        self.parts = []
        self.hidden = 0

    def handle_starttag(self, tag, attrs):
        if tag in self.HIDDEN:
            self.hidden += 1
        if tag in self.BLOCKS:
            self.parts.append(" ")

    def handle_endtag(self, tag):
        if tag in self.HIDDEN and self.hidden:
            self.hidden -= 1
        if tag in self.BLOCKS:
            self.parts.append(" ")

    def handle_data(self, data):
        if not self.hidden:
            self.parts.append(data)


def named(root, local_name):
    """Elements by local name: books in the wild leave the namespaces out as often as not."""
    return (e for e in root.iter() if e.tag.rsplit("}", 1)[-1] == local_name)


def epub(path):
    with zipfile.ZipFile(path) as book:
        container = ET.fromstring(book.read("META-INF/container.xml"))
        opf_path = next(named(container, "rootfile")).get("full-path")
        opf = ET.fromstring(book.read(opf_path))
        hrefs = {item.get("id"): item.get("href") for item in named(opf, "item")}
        for itemref in named(opf, "itemref"):
            href = hrefs.get(itemref.get("idref"))
            if href is None:
                continue
            part = posixpath.normpath(posixpath.join(posixpath.dirname(opf_path),
                                                     urllib.parse.unquote(href.split("#")[0])))
            stripper = Stripper()
            stripper.feed(book.read(part).decode("utf-8", "replace"))
            stripper.close()
            print("\f")
            print(" ".join("".join(stripper.parts).split()))
    return 0


def main(argv):
    if len(argv) == 4 and argv[1] == "presentation":
        return presentation(argv[2], argv[3])  # the folder, then the file
    if len(argv) == 3 and argv[1] == "epub":
        return epub(argv[2])
    print(__doc__, file=sys.stderr)
    return 2


if __name__ == "__main__":
    sys.exit(main(sys.argv))
