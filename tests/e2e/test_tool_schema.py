"""veltrancordctl: descriptions of settings, and documents against them; libxml2 gives the other
opinion."""

import html.parser
import json
import os
import random
import re
import shutil
import subprocess

import pytest

import command_line
from command_line import Tool
from device import REPOSITORY

etree = pytest.importorskip("lxml.etree", reason="python3-lxml is not installed")

SCHEMAS = REPOSITORY / "examples/schema"
DATABASE = REPOSITORY / "examples/database"
NAMES = sorted(path.name for path in DATABASE.iterdir())
XS = "{http://www.w3.org/2001/XMLSchema}"

# How many damages, and how many values of 1000 at once; SCHEMA_ROUNDS=2000 are those of a release.
ROUNDS = int(os.environ.get("SCHEMA_ROUNDS", "100"))


def run(*arguments):
    finished = subprocess.run([command_line.program(), *map(str, arguments)], capture_output=True,
                              text=True, check=False)
    command_line.check_sound(finished.stderr)
    return finished


def findings(schemas, documents):
    """What fsck says of documents against their descriptions. Return: {file: [finding]}."""
    finished = run("--json", "--schema", schemas, "fsck", documents)
    assert finished.returncode in (0, 10), finished
    found = {}
    for one in json.loads(finished.stdout):
        if one["kind"] in ("against-description", "bad-description"):
            found.setdefault(one["file"], []).append(one)
    return found


def mistakes(schemas):
    """What "schema check" says. Return: {file's name: [text]}."""
    finished = run("--json", "schema", "check", schemas)
    assert finished.returncode in (0, 10), finished
    found = {}
    for one in json.loads(finished.stdout):
        found.setdefault(os.path.basename(one["file"]), []).append(one["text"])
    return found


@pytest.fixture(scope="module")
def described():
    """The sample's descriptions, read by libxml2."""
    return {name: etree.XMLSchema(etree.parse(str(SCHEMAS / f"{name}.xsd"))) for name in NAMES}


@pytest.mark.fault("V1")
def test_the_sample_is_described_and_right(described):
    assert sorted(path.stem for path in SCHEMAS.iterdir()) == NAMES and len(NAMES) == 21
    assert run("schema", "check", SCHEMAS).stdout == ""
    assert findings(SCHEMAS, DATABASE) == {}
    for name in NAMES:
        assert described[name].validate(etree.parse(str(DATABASE / name))), described[name].error_log


def test_every_setting_of_the_sample_has_a_label_in_both_languages():
    for name in NAMES:
        tree = etree.parse(str(SCHEMAS / f"{name}.xsd"))
        labelled = {one.get("name") for one in tree.iter(XS + "complexType", XS + "simpleType")
                    if {"en", "de"} <= {text.get("{http://www.w3.org/XML/1998/namespace}lang")
                                        for text in one.findall(f"{XS}annotation/{XS}documentation")}}
        for element in tree.iter(XS + "element"):
            languages = {text.get("{http://www.w3.org/XML/1998/namespace}lang")
                         for text in element.findall(f"{XS}annotation/{XS}documentation")}
            assert {"en", "de"} <= languages or element.get("type") in labelled, (name, element.get("name"))


def test_a_mistake_is_told_with_its_line_and_what_to_write(tmp_path):
    (tmp_path / "Network.xsd").write_text(
        '<xs:schema xmlns:xs="http://www.w3.org/2001/XMLSchema">\n<xs:element name="Network">\n'
        "<xs:complexType><xs:choice/></xs:complexType></xs:element></xs:schema>")
    told = run("schema", "check", tmp_path)
    assert told.returncode == 10
    assert told.stdout == (f"{tmp_path}/Network.xsd:3: <xs:choice> is not read here; write xs:all, and "
                           'minOccurs="0" at each element\n')
    assert run("schema", "check", tmp_path / "none").returncode == 7
    (tmp_path / "empty").mkdir()
    assert run("schema", "check", tmp_path / "empty").returncode == 1


def test_a_gap_in_a_family_is_told(tmp_path):
    text = (SCHEMAS / "Ptz.xsd").read_text()
    (tmp_path / "Ptz.xsd").write_text(text.replace('name="Preset7"', 'name="Preset99"'))
    assert mistakes(tmp_path) == {"Ptz.xsd": [
        "the family Preset has a gap: Preset17 is missing before Preset99",
        "the family Preset has a gap: Preset7 is missing before Preset8"]}


def test_fsck_and_doctor_tell_what_is_not_as_described(device):
    tool = Tool(device)
    device.copy_sample_database()
    text = (DATABASE / "Network").read_text()
    changed = text.replace("<Mtu>1500</Mtu>", "<Mtu>14o0</Mtu>").replace("<Ttl>", "<Tll>").replace(
        "</Ttl>", "</Tll>").replace("enc:12:Mh1WAU0kQmtFDlRS", "enc:" + "x" * 300)
    device.write_document("Network", changed)
    schemas = f"/run/host{SCHEMAS}"
    line = changed[:changed.index("14o0")].count("\n") + 1
    told = tool("--schema", schemas, "fsck", "/mnt/database/xml")
    assert told.status == 10
    assert (f'Network Network.Lan.Mtu: line {line}: is "14o0", and has to be a whole number from 68 to '
            "9000; the nearest is 1400 [against-description]\n") in told.stdout
    assert "Network.Multicast.Tll: line" in told.stdout and "is Network.Multicast.Ttl meant?" in told.stdout
    assert "x" * 20 not in told.stdout  # a secret is not shown
    device.start()
    report = tool.json("doctor", status=10, *("--schema", schemas))
    expected = f"{told.stdout.count(chr(10))} findings, see veltrancordctl fsck"
    assert expected in [one["text"] for one in report["findings"] if one["topic"] == "fsck"]
    assert tool("fsck", "/mnt/database/xml").stdout.count("against-description") == 0  # no description


def test_a_faulty_description_is_a_finding_of_fsck(tmp_path):
    (tmp_path / "Network.xsd").write_text("<xs:schema/>")
    (found,) = findings(tmp_path, DATABASE)[f"{tmp_path}/Network.xsd"]
    assert found["kind"] == "bad-description" and "line 1: does not begin with" in found["text"]


# ---- draft --------------------------------------------------------------------------------------

def test_a_draft_describes_what_it_was_made_from(tmp_path):
    assert run("schema", "draft", DATABASE, tmp_path).returncode == 0
    assert sorted(path.stem for path in tmp_path.iterdir()) == NAMES
    left = mistakes(tmp_path)
    assert all("is a guess" in text for texts in left.values() for text in texts)
    assert findings(tmp_path, DATABASE) == {}
    for name in NAMES:
        schema = etree.XMLSchema(etree.parse(str(tmp_path / f"{name}.xsd")))
        assert schema.validate(etree.parse(str(DATABASE / name))), (name, schema.error_log)
    account = (tmp_path / "Account.xsd").read_text()
    assert '<xs:element name="User4" type="User" minOccurs="0"/>' in account  # of which there is none
    assert account.count("<secret/>") > 2
    for one in tmp_path.iterdir():
        one.write_text(one.read_text().replace("<guess/>", ""))
    assert mistakes(tmp_path) == {}
    before = (tmp_path / "Account.xsd").read_text()
    again = run("schema", "draft", DATABASE, tmp_path)
    assert again.returncode == 5 and "is there already" in again.stderr
    assert (tmp_path / "Account.xsd").read_text() == before
    assert run("schema", "draft", tmp_path / "none", tmp_path).returncode == 7


def test_a_draft_guesses_types(tmp_path):
    (tmp_path / "D").write_text(
        "<D><On>ON</On><Port>80</Port><Tilt>-8</Tilt><Ratio>1.5</Ratio><Day>2024-02-29</Day>"
        "<At>18:30:00</At><Serial>0004127100</Serial><Text>a &amp; b</Text>"
        '<Zone_20A Level="3"><Password/></Zone_20A></D>')
    (tmp_path / "out").mkdir()
    assert run("schema", "draft", tmp_path, tmp_path / "out").returncode == 0
    tree = etree.parse(str(tmp_path / "out/D.xsd"))
    types = {one.get("name"): one.get("type") for one in tree.iter(XS + "element")}
    assert types == {"D": None, "On": None, "Port": "xs:unsignedInt", "Tilt": "xs:int",
                     "Ratio": "xs:decimal", "Day": "xs:date", "At": "xs:time", "Serial": "xs:string",
                     "Text": "xs:string", "Zone_20A": None, "Password": "xs:string"}
    values = [one.get("value") for one in tree.iter(XS + "enumeration")]
    assert values == ["OFF", "ON"]


# ---- doc ----------------------------------------------------------------------------------------

class Page(html.parser.HTMLParser):
    """The anchors, links and texts of a page; every tag has to be closed where it belongs."""

    def __init__(self, text):
        super().__init__()
        self.anchors, self.links, self.text, self.open = [], [], "", []
        self.feed(text)
        assert self.open == []

    def handle_starttag(self, tag, attrs):
        if tag not in ("meta",):
            self.open.append(tag)
        self.anchors += [value for name, value in attrs if name == "id"]
        self.links += [value for name, value in attrs if name == "href"]

    def handle_endtag(self, tag):
        assert self.open.pop() == tag

    def handle_data(self, data):
        self.text += data


NASTY = "<script>document.title='bad'</script> & \"quoted\" 'text' | *bold* _it_ `code` [a](b)"


@pytest.fixture
def nasty(tmp_path):
    """A description whose texts mean something to HTML and Markdown."""
    told = NASTY.replace("&", "&amp;").replace("<", "&lt;").replace(">", "&gt;")
    quoted = told.replace('"', "&quot;")
    (tmp_path / "D.xsd").write_text(
        '<xs:schema xmlns:xs="http://www.w3.org/2001/XMLSchema"><xs:element name="D"><xs:complexType>'
        '<xs:all><xs:element name="Zone_20A" minOccurs="0"><xs:annotation><xs:documentation '
        f'xml:lang="en">{told}</xs:documentation><xs:documentation xml:lang="de">Gebäude</xs:documentation>'
        "</xs:annotation><xs:simpleType><xs:restriction base=\"xs:string\">"
        f'<xs:enumeration value="{quoted}"/></xs:restriction></xs:simpleType></xs:element></xs:all>'
        "</xs:complexType></xs:element></xs:schema>")
    (tmp_path / "out").mkdir()
    return tmp_path


def test_the_manual_has_an_anchor_for_every_setting(tmp_path):
    assert run("schema", "doc", tmp_path, SCHEMAS).returncode == 0
    assert sorted(path.name for path in tmp_path.iterdir()) == sorted(
        [f"{name}.md" for name in NAMES] + ["settings.html"])
    page = Page((tmp_path / "settings.html").read_text())
    assert len(set(page.anchors)) == len(page.anchors) > 300
    assert {link[1:] for link in page.links} <= set(page.anchors)
    assert {"Network.Lan.Mtu", "Account.User1.Username", "Motion.Channel1.Zone A.Area"} <= set(page.anchors)
    assert "Account.User1 to User20.Username" in page.text
    for name in NAMES:
        anchors = re.findall(r'<a id="(.*?)"></a>', (tmp_path / f"{name}.md").read_text())
        assert sorted(anchors) == sorted(one for one in page.anchors
                                         if one == name or one.startswith(name + "."))
    assert run("schema", "doc", tmp_path, SCHEMAS, "--language", "de").returncode == 0
    assert "Größtes Paket" in Page((tmp_path / "settings.html").read_text()).text
    assert run("schema", "doc", tmp_path / "none", SCHEMAS).returncode == 7


def test_the_manual_takes_texts_for_texts(nasty):
    assert run("schema", "doc", nasty / "out", nasty).returncode == 0
    page = Page((nasty / "out/settings.html").read_text())
    assert NASTY in page.text and "D.Zone A" in page.anchors
    markdown = (nasty / "out/D.md").read_text()
    assert "<script>" not in markdown and r"\*bold\*" in markdown and r"\[a\]\(b\)" in markdown


def test_the_manual_in_a_browser(nasty):
    browser = shutil.which("chromium")
    if browser is None:
        pytest.skip("chromium is not installed")
    assert run("schema", "doc", nasty / "out", nasty).returncode == 0
    shown = subprocess.run(
        [browser, "--headless", "--no-sandbox", "--disable-gpu", f"--user-data-dir={nasty}/profile",
         "--dump-dom", (nasty / "out/settings.html").as_uri()],
        capture_output=True, text=True, check=False, env={**os.environ, "HOME": str(nasty)})
    assert "<title>Settings</title>" in shown.stdout, shown.stderr
    page = Page(shown.stdout)
    assert NASTY in page.text
    assert 'id="D.Zone A"' in shown.stdout


# ---- libxml2's opinion --------------------------------------------------------------------------

TEXTS = ["", "YES", "NO", "0", "1", "-1", "+7", "007", "65535", "65536", "99999999999999999999", "1.0",
         "abc", "x" * 300, "a b", "192.0.2.1", "192.0.2.256", "18:30", "24:00-25:00", "2024-02-29",
         "2023-02-29", "18:30:00", "#ffffff", "ä", "ä" * 64, "ä" * 65, "/a/b", "01-31", "0x0010"]


def damage_document(root, chance):
    """One change of a document; some of them leave it right."""
    elements = [one for one in root.iter() if isinstance(one.tag, str)]
    one = chance.choice(elements)
    inner = [element for element in elements if element is not root]
    kind = chance.randrange(9)
    if kind <= 2:
        leaf = chance.choice([element for element in elements if len(element) == 0])
        leaf.text = chance.choice(TEXTS)
    elif kind == 3:
        victim = chance.choice(inner)
        victim.getparent().remove(victim)
    elif kind == 4:
        victim = chance.choice(inner)
        victim.addnext(etree.fromstring(etree.tostring(victim)))
    elif kind == 5:
        chance.choice(inner).tag = chance.choice(["Other", "Name", "Enable", "User99", "Port"])
    elif kind == 6:
        one.set(chance.choice(["Level", "AllowToShow", "DispatchW", "Type", "x"]), chance.choice(TEXTS))
    elif kind == 7:
        one.attrib.clear()
    else:
        branches = [element for element in elements if len(element)]
        chance.choice(branches).text = "text"


@pytest.mark.fault("V1")
def test_damaged_documents_are_judged_as_by_libxml2(described, tmp_path):
    chance = random.Random(17)
    judged = {True: 0, False: 0}
    for turn in range(-(-ROUNDS // len(NAMES))):
        verdicts = {}
        folder = tmp_path / str(turn)
        folder.mkdir()
        for name in NAMES:
            tree = etree.parse(str(DATABASE / name))
            damage_document(tree.getroot(), chance)
            tree.write(str(folder / name), encoding="utf-8")
            verdicts[name] = described[name].validate(etree.parse(str(folder / name)))
        found = findings(SCHEMAS, folder)
        for name in NAMES:
            assert verdicts[name] == (name not in found), (folder / name, found.get(name),
                                                           described[name].error_log)
            judged[verdicts[name]] += 1
    assert judged[True] > 10 and judged[False] > 30


# What the subset refuses and XML Schema does not.
STATED = re.compile(r"is not read|which is not read|has minOccurs|is missing before|is of another type|"
                    r"has no type|a path reaches only the first|is nothing that is told|has source=|"
                    r"in the same language|no number|a document that can hold|describes|second element|"
                    r"stands there already|is required, so|has a default, and no text|says nothing|"
                    r"has no name=|stands there twice|write a language|the pattern|has no value|is no value of|is none of its values")


def damage_description(root, chance):
    elements = [one for one in root.iter() if isinstance(one.tag, str) and one is not root]
    one = chance.choice(elements)
    kind = chance.randrange(6)
    if kind == 0:
        one.getparent().remove(one)
    elif kind == 1:
        one.addnext(etree.fromstring(etree.tostring(one)))
    elif kind == 2:
        one.tag = XS + chance.choice(["element", "all", "sequence", "choice", "simpleType", "complexType",
                                      "restriction", "pattern", "minInclusive", "maxLength", "enumeration",
                                      "attribute", "union", "any", "annotation"])
    elif kind == 3 and one.attrib:
        one.set(chance.choice(sorted(one.attrib)), chance.choice(
            ["", "xs:int", "xs:string", "YesNo", "Port", "0", "1", "-1", "unbounded", "a b", "[a-z", "x"]))
    elif kind == 4 and one.attrib:
        del one.attrib[chance.choice(sorted(one.attrib))]
    else:
        one.set(chance.choice(["default", "minOccurs", "maxOccurs", "type", "name", "use", "x"]),
                chance.choice(["0", "1", "2", "xs:int", "Other", "required", "YES"]))


@pytest.mark.fault("V1")
def test_damaged_descriptions_are_judged_as_by_libxml2(tmp_path):
    """What libxml2 refuses is refused; what it takes and we refuse is told to be beyond the subset."""
    chance = random.Random(18)
    refused = 0
    for turn in range(-(-ROUNDS // len(NAMES))):
        folder = tmp_path / str(turn)
        folder.mkdir()
        for name in NAMES:
            tree = etree.parse(str(SCHEMAS / f"{name}.xsd"))
            damage_description(tree.getroot(), chance)
            tree.write(str(folder / f"{name}.xsd"), encoding="utf-8")
        found = mistakes(folder)
        for name in NAMES:
            told = found.get(f"{name}.xsd", [])
            try:
                etree.XMLSchema(etree.parse(str(folder / f"{name}.xsd")))
            except etree.XMLSchemaParseError as failure:
                refused += 1
                assert told, (folder / name, failure)
            else:
                assert all(STATED.search(text) for text in told), (folder / name, told)
    assert refused > ROUNDS / 10


NUMBERS = ["byte", "short", "int", "long", "unsignedByte", "unsignedShort", "unsignedInt", "unsignedLong",
           "integer", "nonNegativeInteger", "positiveInteger", "nonPositiveInteger", "negativeInteger",
           "decimal"]
WIDTHS = {"byte": 7, "short": 15, "int": 31, "long": 63, "unsignedByte": 8, "unsignedShort": 16,
          "unsignedInt": 32, "unsignedLong": 64}


def random_type(chance):
    """Return: (base, facets as XML, a routine that makes a value near the bounds)."""
    kind = chance.choice(["number", "number", "string", "pattern", "enumeration", "time", "date"])
    if kind == "number":
        base = chance.choice(NUMBERS)
        width = WIDTHS.get(base, 40)
        top = 2 ** width - 1
        bottom = 0 if base.startswith(("unsigned", "nonNeg", "pos")) else -(2 ** width)
        if base.startswith("non") and base != "nonNegativeInteger" or base == "negativeInteger":
            top = -1
        low, high = sorted((chance.randint(max(bottom, 1) if base == "positiveInteger" else bottom, top),
                            chance.randint(max(bottom, 1) if base == "positiveInteger" else bottom, top)))
        facets = f'<xs:minInclusive value="{low}"/><xs:maxInclusive value="{high}"/>'
        if chance.random() < 0.4:
            facets, low, high = "", bottom, top

        def number():
            value = chance.choice((low, high, 0, bottom, top)) + chance.randint(-2, 2)
            text = str(value)
            text = chance.choice((text, text, text, f"+{text}", f"0{text}", f" {text}\t", f"{text}.0",
                                  f"{text}.", f"-{text}", f"{text}x", f"{text}.00000001", "-0", "+0", ".5", ""))
            return text
        return base, facets, number
    if kind == "string":
        low, high = sorted((chance.randint(0, 5), chance.randint(0, 9)))
        facets = f'<xs:minLength value="{low}"/><xs:maxLength value="{high}"/>'
        return "string", facets, lambda: "".join(chance.choice("abäß€😀-") for _ in range(
            max(0, chance.choice((low, high)) + chance.randint(-1, 1))))
    if kind == "pattern":
        pattern = chance.choice(["[0-9]{1,3}(\\.[0-9]{1,3}){3}", "[a-zäöü]+", "[^a-c]*", ".{2,4}", "(ab|c)+d?",
                                 "[a-z-[aeiou]]{2}", "\\s?\\S+", "a{0,2}b{2}", "[\\^\\-\\]]+", "^a$", "[€-😀]+"])
        return "string", f'<xs:pattern value="{pattern}"/>', lambda: "".join(
            chance.choice("abcdeä€😀019.^$-]") for _ in range(chance.randint(0, 5)))
    if kind == "enumeration":
        base = chance.choice(["string", "int", "decimal"])
        values = [str(chance.randint(-20, 20)) for _ in range(3)]
        facets = "".join(f'<xs:enumeration value="{one}"/>' for one in dict.fromkeys(values))
        return base, facets, lambda: chance.choice(("", "0", "+", "-")) + chance.choice(values) + chance.choice(
            ("", "", ".0", "0"))
    if kind == "time":
        low, high = sorted(f"{chance.randint(0, 23):02}:{chance.randint(0, 59):02}:00" for _ in range(2))
        facets = f'<xs:minInclusive value="{low}"/><xs:maxInclusive value="{high}"/>'
        return "time", facets, lambda: chance.choice((
            low, high, f"{chance.randint(0, 25):02}:{chance.randint(0, 61):02}:{chance.randint(0, 61):02}",
            high + ".5", low[:-1], high.replace(":", "")))
    low, high = sorted(f"{chance.randint(1, 9999):04}-{chance.randint(1, 12):02}-{chance.randint(1, 28):02}"
                       for _ in range(2))
    facets = f'<xs:minInclusive value="{low}"/><xs:maxInclusive value="{high}"/>'
    return "date", facets if chance.random() < 0.5 else "", lambda: chance.choice((
        low, high, f"{chance.choice((1900, 2000, 2023, 2024)):04}-{chance.randint(0, 13):02}-"
                   f"{chance.randint(27, 32):02}", low + "Z", high[:-1]))


@pytest.mark.fault("V1")
@pytest.mark.parametrize("seed", range(max(1, ROUNDS // 20)))
def test_values_are_judged_as_by_libxml2(tmp_path, seed):
    """1000 values around the bounds of random types."""
    chance = random.Random(seed)
    body, values = "", []
    for number in range(50):
        base, facets, value = random_type(chance)
        body += (f'<xs:simpleType name="T{number}"><xs:restriction base="xs:{base}">{facets}'
                 "</xs:restriction></xs:simpleType>")
        values += [(f"T{number}", value()) for _ in range(20)]
    elements = "".join(f'<xs:element name="V{n}" type="{kind}"/>' for n, (kind, _) in enumerate(values))
    schema = ('<xs:schema xmlns:xs="http://www.w3.org/2001/XMLSchema"><xs:element name="D"><xs:complexType>'
              f"<xs:sequence>{elements}</xs:sequence></xs:complexType></xs:element>{body}</xs:schema>")
    (tmp_path / "D.xsd").write_text(schema)
    root = etree.Element("D")
    for number, (_, text) in enumerate(values):
        one = etree.SubElement(root, f"V{number}")
        one.text = text
        one.tail = "\n"
    (tmp_path / "db").mkdir()
    (tmp_path / "db/D").write_bytes(etree.tostring(root, encoding="utf-8"))
    ours = {int(re.search(r"V(\d+)", one["path"])[1]) for one in findings(tmp_path, tmp_path / "db").get("D", [])}
    theirs = etree.XMLSchema(etree.fromstring(schema))
    for one in root:  # as the service reads it
        one.text = " ".join(one.text.split())
    theirs.validate(root)
    wrong = {int(match[1]) for error in theirs.error_log if (match := re.search(r"Element 'V(\d+)'", error.message))}
    assert {(n, values[n]) for n in ours ^ wrong} == set()
    assert 100 < len(ours) < 900
