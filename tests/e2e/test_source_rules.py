"""Rules of the sources that no compiler holds."""

import pathlib
import re

SOURCES = pathlib.Path(__file__).resolve().parents[2] / "src"

# What changes a document that has been parsed.
CHANGES = re.compile(
    r"\b(SetXmlValue|MergeSubtree|MergeXmlNode|NewEdition|AppendElement|RemoveChildNode|"
    r"(?:Write|Sync|Restore)ElementText|LinkEndChild|Insert(?:End|Before|After)Child|"
    r"ReplaceChild|RemoveChild|RemoveAttribute|Set(?:Double)?Attribute|SetValue|SetCDATA)\(")
# What changes loaded documents, and below it what changes others.
CHANGE = {"store/change.cpp", "store/change.h", "store/merge.cpp", "store/merge.h"}
OTHERS = {"eventlog/log_document.cpp"}  # the event log



def code(path):
    return re.sub(r"//[^\n]*", "", path.read_text())


def test_loaded_documents_are_changed_in_one_place():
    found = set()
    for path in SOURCES.glob("*/*.[ch]*"):
        name = str(path.relative_to(SOURCES))
        if not name.startswith("xml/") and not name.endswith("_test.cpp") and CHANGES.search(code(path)):
            found.add(name)
    assert found == CHANGE | OTHERS
