"""The commands that read attributes."""

import pytest

from wire import lines

ACCOUNT = """<Account Level="9" Own="root">
  <User1 Level="3" AllowToShow="YES"><Username DispatchW="/bin/x" Level="1">admin</Username></User1>
  <User2 Level="4" Empty=""><Username>guest</Username></User2>
  <Plain>no attributes</Plain>
  <Group><Inner><Deep Level="5" level="small">d</Deep></Inner><Second Level="6"/></Group>
  <Leaf Level="7" Other="x">text</Leaf>
  <User1 Level="8" Color="red"/>
</Account>"""

NAMES = """<Names><a_20b At_20t="1" X="&lt;&amp;&quot;"><Inner_20c Y="2"/></a_20b>
<Star A="*" Sp=" two  blanks "/></Names>"""

SINGLE = '<Single Level="2" Color="blue">text only</Single>'


DOCUMENTS = {"Account": ACCOUNT, "Names": NAMES, "Single": SINGLE, "Bad": "<"}


# ---- readsingleattr ---------------------------------------------------------------------------


def test_a_single_attribute_is_given_bare(running):
    assert running.request("readsingleattr:Account.User1.Level") == (1, b"3")
    assert running.request("readsingleattr:Account.User1.AllowToShow") == (3, b"YES")
    assert running.request("readsingleattr:Account.User1.Username.DispatchW") == (6, b"/bin/x")


def test_a_single_attribute_of_the_root(running):
    assert running.request("readsingleattr:Account.Level") == (1, b"9")
    assert running.request("readsingleattr:Single.Color") == (4, b"blue")


def test_a_path_of_the_document_alone_asks_the_root_for_an_attribute_of_its_name(service):
    one = service({"A": '<A A="itself"/>', "B": "<B/>"})
    assert one.request("readsingleattr:A") == (6, b"itself")
    assert one.request("readattr:A").text == "A.A=itself\n"
    assert one.request("readsingleattr:B") == (-4, b"")


def test_values_of_attributes_are_given_as_they_stand(running):
    assert running.request("readsingleattr:Names.Star.Sp").text == " two  blanks "
    assert running.request("readsingleattr:Names.a b.X").text == '<&"'


def test_an_empty_attribute_has_the_length_0(running):
    assert running.request("readsingleattr:Account.User2.Empty") == (0, b"")


@pytest.mark.parametrize("path, code", [
    ("Account.User1.Color", -4),  # the first User1 has none, and only that one is asked
    ("Account.User1.level", -4),
    ("Account.Nothing.Level", -4),
    ("Nothing.User1.Level", -4),
    ("Account.Nothing", -4),
    ("Bad.Level", -4),
    ("Account.User1.*", -7), ("Account.*.Level", -7), ("Account.User1.#", -7), ("Account.*", -7),
    ("Account.#", -7), ("Account.*.*", -7), ("Account.*.#", -7), ("", -7), (".", -7), (".*", -7),
    ("*", -4), ("Nothing.*", -4), ("Nothing.*.Level", -4),
])
def test_what_readsingleattr_refuses(running, path, code):
    running.forget_output()
    assert running.request(f"readsingleattr:{path}") == (code, b"")
    assert running.stderr() == ""


# ---- readattr: one attribute ------------------------------------------------------------------


def test_one_attribute_is_given_as_a_line(running):
    assert running.request("readattr:Account.User1.Level") == (22, b"Account.User1.Level=3\n")
    assert running.request("readattr:Account.Level").text == "Account.Level=9\n"
    assert running.request("readattr:Account.Leaf.Other").text == "Account.Leaf.Other=x\n"


def test_an_attribute_that_an_existing_element_lacks_is_an_empty_success(running):
    assert running.request("readattr:Account.User1.Color") == (0, b"")
    assert running.request("readattr:Account.Plain.Level") == (0, b"")
    assert running.request("readattr:Account.Nothing") == (0, b"")


@pytest.mark.parametrize("path, code", [
    ("Account.Nothing.Level", -4), ("Nothing.Level", -4), ("Nothing.*", -4),
    ("Account.Nothing.*", -4),
    ("Account.Nothing.#", -4), ("Account.Nothing.*.Level", -4), ("Bad.Level", -4), ("Bad.*", -4),
    ("", -7), (".", -7), ("....", -7), (".*", -7), ("*", -4), ("#", -4),
])
def test_what_readattr_refuses(running, path, code):
    running.forget_output()
    assert running.request(f"readattr:{path}") == (code, b"")
    assert running.stderr() == ""


# ---- readattr: the other modes ----------------------------------------------------------------


BELOW = ["Account.User1.Level=3", "Account.User1.AllowToShow=YES",
         "Account.User1.Username.DispatchW=/bin/x", "Account.User1.Username.Level=1",
         "Account.User2.Level=4", "Account.User2.Empty=",
         "Account.Group.Inner.Deep.Level=5", "Account.Group.Inner.Deep.level=small",
         "Account.Group.Second.Level=6", "Account.Leaf.Level=7", "Account.Leaf.Other=x",
         "Account.User1.Level=8", "Account.User1.Color=red"]


def test_all_attributes_below_an_element_without_its_own(running):
    assert running.request("readattr:Account.*").text == lines(*BELOW)
    assert running.request("readattr:Account.*.*").text == lines(*BELOW)
    assert running.request("readattr:Account.Group.*").text == lines(*BELOW[6:9])
    assert running.request("readattr:Account.User1.*").text == lines(*BELOW[2:4])


def test_all_attributes_below_an_element_without_children_are_its_own(running):
    assert running.request("readattr:Account.Leaf.*").text == lines(*BELOW[9:11])
    assert running.request("readattr:Account.Plain.*") == (0, b"")
    assert running.request("readattr:Single.*").text == lines("Single.Level=2", "Single.Color=blue")


def test_own_attributes(running):
    assert running.request("readattr:Account.User1.#").text == lines(*BELOW[:2])
    root = running.request("readattr:Account.#").text
    assert root == lines("Account.Level=9", "Account.Own=root")
    assert running.request("readattr:Account.Plain.#") == (0, b"")
    assert running.request("readattr:Account.User2.#").text == lines(*BELOW[4:6])


def test_one_attribute_in_a_subtree(running):
    assert running.request("readattr:Account.*.Level").text == lines(
        *[line for line in BELOW if line.split("=")[0].endswith(".Level")])
    assert running.request("readattr:Account.Group.*.Level").text == lines(BELOW[6], BELOW[8])
    assert running.request("readattr:Account.Group.*.Nothing") == (0, b"")
    assert running.request("readattr:Account.Leaf.*.Level").text == "Account.Leaf.Level=7\n"
    assert running.request("readattr:Account.Leaf.*.Nothing") == (0, b"")
    assert running.request("readattr:Single.*.Color").text == "Single.Color=blue\n"


def test_names_are_not_decoded_here(running):
    assert running.request("readattr:Names.a b.#").text == lines(
        "Names.a_20b.At_20t=1", 'Names.a_20b.X=<&"')
    assert running.request("readattr:Names.a b.*").text == "Names.a_20b.Inner_20c.Y=2\n"
    assert running.request("readattr:Names.*.A").text == "Names.Star.A=*\n"


def test_an_attribute_name_is_escaped_as_every_component(running):
    assert running.request("readsingleattr:Names.a b.At t").text == "1"
    assert running.request("readattr:Names.a b.At t").text == "Names.a_20b.At_20t=1\n"


# ---- bounds -----------------------------------------------------------------------------------


def test_an_attribute_name_of_63_characters_is_taken_and_a_longer_one_cut(service):
    name, longer = "n" * 63, "m" * 64
    one = service({"A": f'<A><B {name}="1" {longer}="2" {longer[:63]}="cut"/></A>'})
    assert one.request(f"readsingleattr:A.B.{name}").text == "1"
    assert one.request(f"readattr:A.B.{name}").text == f"A.B.{name}=1\n"
    assert one.request(f"readsingleattr:A.B.{longer}").text == "cut"
    assert one.request(f"readattr:A.*.{longer}").text == f"A.B.{longer[:63]}=cut\n"
    assert one.request("readattr:A.B.#").text == lines(
        f"A.B.{name}=1", f"A.B.{longer}=2", f"A.B.{longer[:63]}=cut")


def test_long_keys_are_cut_and_do_no_harm(service):
    name = "n" * 100
    attribute = "a" * 600
    one = service({"D": "<D>" + f"<{name}>" * 5 + f'<E {attribute}="1" B="2"/>' + f"</{name}>" * 5
                        + "</D>", "After": '<After><X Y="z"/></After>'})
    for path in ("D.*", "D.*.B", f"D.{name}.*", ".".join(["D", *[name] * 4, "*"]),
                 ".".join(["D", *[name] * 4, "E", "#"]), ".".join(["D", *[name] * 4, "E", "B"])):
        reply = one.request(f"readattr:{path}")
        assert reply.code >= -4
        for line in reply.lines:
            assert len(line) <= 511 + 2
    assert one.request("readattr:After.*").text == "After.X.Y=z\n"


def test_many_siblings_do_no_harm(service):
    count = 20000
    one = service({"A": "<A>" + '<B C="1"/>' * count + "</A>"})
    assert one.request("readattr:A.*.C").text == "A.B.C=1\n" * count
