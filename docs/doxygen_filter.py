#!/usr/bin/env python3
"""doxygen_filter.py HEADER - the header with its plain comments marked up as Doxygen takes them.

The comment before a declaration becomes its documentation, and that of the declarations that follow without an empty line; the
one behind a member becomes the member's, the first of a file the file's, and "---- TEXT ----" heads a group. In a comment a
line that ends early ends its paragraph, one that begins with a result is the function's result, and what is indented stays as
it is. types.h, which says what holds for all headers, is the main page as well.
"""
import os
import re
import sys

WIDTH = 97
RESULT = re.compile(r"(Always )?-?\d+([;,.: ]|$)|Null\b|(The|Their) [^.]*[.;] (-1|0|Null|null) ")
TRAILING = re.compile(r"^( *[^ /*].*?[;,{]|#define .*?) +/\* (.*)$")


def escape(text):
    return re.sub(r"([\\@&$#<>%])", r"\\\1", text).replace("--", r"\--").replace('"', "&quot;")


def paragraphs(lines):
    """The lines of a comment's text as paragraphs: lists of lines, of which the first tells the kind."""
    paragraph = []
    for line in lines:
        early = paragraph and paragraph[-1].endswith((".", ":")) and \
            len(paragraph[-1]) + 1 + len(line.split(" ", 1)[0]) <= WIDTH
        in_item = paragraph and paragraph[0].startswith("- ")
        kind_changes = paragraph and not in_item and line.startswith("  ") != paragraph[0].startswith("  ")
        if not line or line.startswith("- ") or kind_changes or early and not line.startswith("  "):
            if paragraph:
                yield paragraph
            paragraph = []
        if line:
            paragraph.append(line)
    if paragraph:
        yield paragraph


def markup(lines, result):
    """The text of a comment; result says whether it is a function's."""
    for paragraph in paragraphs(lines):
        yield ""
        if paragraph[0].startswith("  "):
            yield from ["@verbatim", *paragraph, "@endverbatim"]
            continue
        text = [escape(line) for line in paragraph]
        yield ("@return " if result and RESULT.match(" ".join(paragraph)) else "") + text[0]
        yield from text[1:]


def document(lines, opening="", result=False):
    return ["/**" + opening, *markup(lines, result), "*/"]


class Header:
    def __init__(self, path):
        self.name = os.path.basename(path)
        self.lines = iter(open(path, encoding="utf-8").read().split("\n"))
        self.comment = None  # what documents the next declaration
        self.declaring = False
        self.depth = 0
        self.in_group = False
        self.first = True

    def rest_of_comment(self, line):
        """The text of the comment that begins with this line, without its stars."""
        text = [line]
        while "*/" not in text[-1]:
            text.append(next(self.lines))
        text[-1] = text[-1][:text[-1].index("*/")].rstrip()
        return [text[0].strip()] + [re.sub(r"^ *\*? ?", "", line, count=1).rstrip() for line in text[1:]]

    def block(self, lines):
        heading = re.match(r"---- (.*) ----$", lines[0])
        if self.first:
            self.first = False
            lines[0] = re.sub(r"^\S+ - (.)", lambda match: match.group(1).upper(), lines[0])
            yield from document(lines, " @file")
            if self.name == "types.h":
                yield from document(lines[2:], " @mainpage libtq")
        elif heading:
            yield from self.end_group()
            yield from document(lines[1:], " @name " + heading.group(1)[0].upper() + heading.group(1)[1:])
            yield "/**@{*/"
            self.in_group = True
            self.comment = lines[1:]
        elif not lines[0].startswith("NOLINT"):
            self.comment = lines
            self.declaring = False

    def end_group(self):
        if self.in_group:
            yield "/**@}*/"
        self.in_group = False

    def declaration(self, line):
        if not self.declaring and self.comment and not line.startswith("#if"):
            yield from document(self.comment, result="(" in line)
        trailing = TRAILING.match(line)
        if trailing:
            text = self.rest_of_comment(trailing.group(2))
            line = trailing.group(1)
            if not text[0].startswith("NOLINT"):
                line += " /**< " + " ".join(escape(part) for part in text) + " */"
        yield line
        code = line.split(" /**<")[0]
        self.depth += code.count("{") - code.count("}")
        self.declaring = not code.startswith("#") and (self.depth > 0 or not code.endswith(";"))

    def output(self):
        for line in self.lines:
            stripped = line.lstrip()
            if stripped.startswith("/*"):
                yield from self.block(self.rest_of_comment(stripped[2:]))
            elif not stripped:
                self.comment = None
                yield line
            else:
                if line == "TQ_END_DECLS":
                    yield from self.end_group()
                yield from self.declaration(line)


print("\n".join(Header(sys.argv[1]).output()))
