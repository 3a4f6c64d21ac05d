#!/usr/bin/env python3
"""Finds the parameters and results of public functions that the headers do not document.

usage: check_documented.py XML_DIRECTORY

The XML is Doxygen's, which itself fails for a function without a comment. Ends with 1 and the names
when a comment lacks the "@param" of a parameter or the "@return" of a result.
"""
import pathlib
import sys
import xml.etree.ElementTree as ET


def text_of(node):
    return "".join(node.itertext()).strip() if node is not None else ""


def functions(xml):
    for path in sorted(xml.glob("*.xml")):
        for member in ET.parse(path).iter("memberdef"):
            if member.get("kind") == "function" and member.get("prot") == "public":
                yield member


def undocumented(function):
    described = {text_of(name) for name in function.iterfind(".//parameterlist[@kind='param']//parametername")}
    names = [text_of(name) for name in function.iterfind("param/declname")]
    missing = [f"@param {name}" for name in names if name not in described]
    has_result = text_of(function.find("type")).split()[-1:] not in ([], ["void"])
    if has_result and function.find(".//simplesect[@kind='return']") is None:
        missing.append("@return")
    return missing


def main(xml):
    checked = wrong = 0
    for function in functions(xml):
        checked += 1
        for tag in undocumented(function):
            wrong += 1
            print(f"{function.find('location').get('file')}: {function.findtext('name')} lacks {tag}")
    print(f"{checked} functions, {wrong} parameters and results without documentation")
    return 1 if wrong or not checked else 0


if __name__ == "__main__":
    sys.exit(main(*map(pathlib.Path, sys.argv[1:])))
