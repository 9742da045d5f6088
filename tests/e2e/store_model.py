"""The rules of the store written down once more, as naively as possible: documents of nested lists,
dotted paths, what every command answers, and what is in the files after it.

Texts and names are Python texts of ASCII characters. Elements have attributes (a dictionary, which
keeps its order) and children: other elements, and texts.
"""

import xml.etree.ElementTree as ElementTree

from account_text import element_name
from secret import enc_form, plain_form

NOT_FOUND, BAD_ARGUMENT, STORE_FAILED = -4, -7, -11
MAX_SECRET = 255  # characters of a plain secret that is shown; a file may hold a longer one


class Element:
    def __init__(self, name, attributes=None, children=None):
        self.name = name
        self.attributes = dict(attributes or {})
        self.children = list(children or [])

    def elements(self):
        return [child for child in self.children if isinstance(child, Element)]

    def text(self):
        """The first child where that is a text; None otherwise."""
        return self.children[0] if self.children and isinstance(self.children[0], str) else None


def plain(element):
    """An element as a file keeps it: neighbouring texts are one, blanks at ends and in runs go."""
    children = []
    for child in element.children:
        if isinstance(child, Element):
            children.append(plain(child))
        elif children and isinstance(children[-1], str):
            children[-1] += child
        else:
            children.append(child)
    children = [" ".join(c.split()) if isinstance(c, str) else c for c in children]
    return Element(element.name, element.attributes, [c for c in children if c != ""])


def parse(data):
    """The `plain` element that a file's bytes hold, None where it holds nothing."""

    def made(node):
        children = [node.text or ""]
        for below in node:
            children += [made(below), below.tail or ""]
        return Element(node.tag, node.attrib, children)

    return plain(made(ElementTree.fromstring(data))) if data.strip() else None


def same(a, b):
    if not (isinstance(a, Element) and isinstance(b, Element)):
        return a == b
    return (a.name == b.name and list(a.attributes.items()) == list(b.attributes.items())
            and len(a.children) == len(b.children) and all(map(same, a.children, b.children)))


def decoded(name):
    """A stored name as listings show it."""
    text, at = "", 0
    while at < len(name):
        try:
            text += chr(int(name[at + 1:at + 3], 16)) if name[at] == "_" else name[at]
            at += 3 if name[at] == "_" else 1
        except ValueError:
            text, at = text + name[at], at + 1
    return text


def find(elements, components):
    """The element at the path: depth first, and a later one of the same name may still match."""
    for element in elements:
        if element.name == components[0]:
            if len(components) == 1:
                return element
            below = find(element.elements(), components[1:])
            if below is not None:
                return below
    return None


class StoreModel:
    """`documents`: name to root Element or None. `files`: the same as they were saved last."""

    def __init__(self, texts):
        self.files = {name: parse(text) for name, text in texts.items()}
        self.restart("")

    def restart(self, _):
        """An empty file is not loaded at all; it stays where it is."""
        self.documents = {name: plain(root) for name, root in self.files.items() if root}
        self.changed = {}  # document to "flash" or "memory"

    def __call__(self, command, argument):
        """Return: (code, body) of the reply."""
        result = getattr(self, command)(argument)
        code, body = result if isinstance(result, tuple) else (result, "")
        for name, where in list(self.changed.items()):
            if where == "flash":
                self._save(name)
        return code, body

    def _save(self, name):
        root = self.documents[name]
        self.files[name] = plain(root) if root else None
        del self.changed[name]

    def _mark(self, name, where):
        if self.changed.get(name) != "flash":
            self.changed[name] = where

    def _split(self, path):
        return [element_name(part) for part in path.split(".") if part]

    def _found(self, name, components):
        root = self.documents[name]
        return find([root] if root else [], components)

    # ---- reading ----

    def _read(self, path, level=0):
        components = self._split(path)
        if not components:
            return BAD_ARGUMENT
        if components[0] not in self.documents:
            return NOT_FOUND
        wildcard = components[-1] == "*"
        element = self._found(components[0], components[:-1] if wildcard else components)
        if element is None or (element.text() is None and not wildcard):
            return NOT_FOUND
        body = (self._listing(element, ".".join(components[:-1])) if wildcard
                else f"{path}={element.text()}")
        if level > 0:
            own = element.attributes.get("Level")
            if own is None or not (own.isdigit() and int(own) >= level):
                return NOT_FOUND
        return len(body), body

    def _listing(self, element, prefix):
        lines = ""
        for child in element.elements():
            key = f"{prefix}.{decoded(child.name)}"
            lines += self._listing(child, key)
            text = child.text()
            if text is not None:
                secret = child.name.lower() == "password"
                lines += f"{key}={plain_form(text)[:MAX_SECRET] if secret else text}\n"
        return lines

    def read(self, path):
        return self._read(path)

    def readwithlevel(self, argument):
        path, ampersand, level = argument.rpartition("&")
        return self._read(path, int(level)) if ampersand else NOT_FOUND

    def readvalue(self, path):
        components = self._split(path)
        if not components:
            return BAD_ARGUMENT
        if path == ".*":
            return BAD_ARGUMENT
        if components[0] not in self.documents:
            return NOT_FOUND
        if components[-1] == "*":
            return BAD_ARGUMENT
        element = self._found(components[0], components)
        if element is None or element.text() is None:
            return NOT_FOUND
        stored = element.text()
        text = plain_form(stored)[:MAX_SECRET] if components[-1].lower() == "password" else stored
        return len(stored), text.ljust(len(stored), "\0")

    def readsingleattr(self, path):
        components = self._split(path)
        if not components:
            return BAD_ARGUMENT
        if components[0] not in self.documents:
            return NOT_FOUND
        if path.endswith(("*", "#")) or components[-2:-1] == ["*"]:
            return BAD_ARGUMENT
        element = self._found(components[0], components[:-1] or components)
        if element is None or components[-1] not in element.attributes:
            return NOT_FOUND
        value = element.attributes[components[-1]]
        return len(value), value

    def readattr(self, path):
        """Of the forms that the tests use: Path.Name, Path.*, Path.# and Path.*.Name."""
        components = self._split(path)
        if components[0] not in self.documents:
            return NOT_FOUND
        *where, last = path.split(".")
        below = last == "*" or where[-1] == "*"
        name = None if last in ("*", "#") else element_name(last)
        where = self._split(".".join(where[:-1] if where[-1] == "*" else where))
        element = self._found(components[0], where)
        if element is None:
            return NOT_FOUND
        prefix = ".".join(where)
        body = (self._attributes_below(element, prefix, name) if below and element.elements()
                else self._attributes(element, prefix, name))
        return len(body), body

    def _attributes(self, element, prefix, name):
        return "".join(f"{prefix}.{key}={value}\n" for key, value in element.attributes.items()
                       if name in (None, key))

    def _attributes_below(self, element, prefix, name):
        lines = ""
        for child in element.elements():
            key = f"{prefix}.{child.name}"
            lines += self._attributes(child, key, name) + self._attributes_below(child, key, name)
        return lines

    # ---- changing ----

    def _each_line(self, argument, apply):
        if not argument:
            return BAD_ARGUMENT
        count = 0
        while "=" in argument:
            path, _, argument = argument.partition("=")
            value, _, argument = argument.partition("\n")
            result = apply(path, value)
            if result < 0:
                return result
            count += 1
        return count

    def _set(self, path, value, where):
        components = self._split(path)
        if not components:
            return BAD_ARGUMENT
        if components[0] not in self.documents:
            return NOT_FOUND
        if self.documents[components[0]] is None:
            self.documents[components[0]] = Element(components[0])
        element = self.documents[components[0]]
        for component in components[1:]:
            below = next((e for e in element.elements() if e.name == component), None)
            if below is None:
                below = Element(component)
                element.children.append(below)
            element = below
        if components[-1].lower() == "password":
            value = enc_form(value)
        element.children = element.children[1:] + [value]
        self._mark(components[0], where)
        return 0

    def write(self, argument):
        return self._each_line(argument, lambda path, value: self._set(path, value, "flash"))

    def writedbmem(self, argument):
        return self._each_line(argument, lambda path, value: self._set(path, value, "memory"))

    def _set_attribute(self, path, value):
        components = self._split(path)
        if not components:
            return BAD_ARGUMENT
        if components[0] not in self.documents:
            return NOT_FOUND
        element = self.documents[components[0]]
        for component in (components[:-1] or components)[1:]:
            element = element and next((e for e in element.elements() if e.name == component), None)
        if element is None:
            return STORE_FAILED
        element.attributes[components[-1]] = value
        self._mark(components[0], "flash")
        return 0

    def writeattr(self, argument):
        return self._each_line(argument, self._set_attribute)

    def remove(self, argument):
        argument = argument.removesuffix("\n")
        components = self._split(argument)
        if not components:
            return BAD_ARGUMENT
        name = components[0]
        if name not in self.documents:
            return NOT_FOUND
        if argument == f"{name}.*":
            del self.documents[name], self.files[name]
            self.changed.pop(name, None)
            return 0
        if components[-1] == "*":
            components.pop()
        element = self._found(name, components)
        if element is None:
            return NOT_FOUND
        self._unlink(name, element)
        self._mark(name, "flash")
        return 0

    def _unlink(self, name, element):
        def below(parent):
            parent.children = [c for c in parent.children if c is not element]
            for child in parent.elements():
                below(child)

        if self.documents[name] is element:
            self.documents[name] = None
        else:
            below(self.documents[name])

    def syncmemtoflash(self, _):
        if not self.documents:
            return NOT_FOUND
        for name in list(self.changed):
            self._save(name)
        return 0

    # ---- exchange files: their argument is the text of the file ----

    def _exchanged(self, text):
        root = parse(text)
        return None if root is None else root.elements()

    def _create(self, root):
        self.files[root.name] = plain(root)
        self.documents[root.name] = plain(root)
        self.changed.pop(root.name, None)

    def upload(self, text):
        for root in self._exchanged(text):
            self._create(root)
        return 0

    def restore(self, text):
        for root in self._exchanged(text):
            held = self.documents.get(root.name)
            if held is not None:
                merge_held(root, held)
            self._create(root)
        return 0

    def syncxml(self, text):
        for root in self._exchanged(text):
            if root.name not in self.documents:
                self._create(root)
                continue
            texts = texts_of(root, [])
            for path, value in texts:
                self._put(path, value)
            self._mark(root.name, "flash")
        return 0

    def _put(self, path, value):
        """Sets a text at the place of these names, the first of each."""
        if self.documents[path[0]] is None:
            self.documents[path[0]] = Element(path[0])
        element = self.documents[path[0]]
        for name in path[1:]:
            below = next((e for e in element.elements() if e.name == name), None)
            if below is None:
                below = Element(name)
                element.children.append(below)
            element = below
        if path[-1].lower() == "password" and not value.startswith("enc:"):
            value = enc_form(value)
        if element.text() is not None:
            element.children[0] = value
        else:
            element.children = element.children[1:] + [value]

    def download(self, _):
        return 0


def texts_of(element, above):
    """(names, text) of each element that begins with a text, in the order of the file."""
    path = [*above, element.name]
    found = [] if element.text() is None else [(path, element.text())]
    for child in element.elements():
        found += texts_of(child, path)
    return found


def merge_held(into, held):
    """What is held wins: its texts replace those of the same place, what only it has is added."""
    for child in held.elements():
        there = next((e for e in into.elements() if e.name == child.name), None)
        text = child.text()
        if there is None:
            made = Element(child.name)
            if text is not None:
                made.children, made.attributes = [text], dict(child.attributes)
            else:
                merge_held(made, child)
            into.children.append(made)
        elif text is not None and there.text() is not None:
            there.children[0] = text
        elif text is not None and not there.children:
            there.children.append(text)
        else:
            merge_held(there, child)
