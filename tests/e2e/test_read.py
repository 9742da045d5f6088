"""The read commands: paths, values, listings, bounds and every result code."""

import pytest

from account_text import ACCOUNT_WITH_SECRETS as ACCOUNT
from secret import enc_form
from wire import lines

NAMES = """<Names>
  <a_20b_5Fc>escaped</a_20b_5Fc>
  <under_score>raw</under_score>
  <plus.name>dotted</plus.name>
  <Star_2A>star</Star_2A>
  <lower_5fc>lower</lower_5fc>
  <Dash-1>dash</Dash-1>
  <U_4A>not so when asked for</U_4A>
  <Group_20A><Inner_20B>in</Inner_20B></Group_20A>
</Names>"""

SHAPES = """<Shapes>text of the root<Twice><A>1</A></Twice><Twice><A>2</A><B>3</B></Twice>
  <Mixed>before<Child>c</Child>after</Mixed>
  <Commented><!-- first -->text</Commented>
  <Data><![CDATA[<raw> & "x"]]></Data>
  <Empty></Empty><Closed/><Blank>   </Blank>
  <Parent><Only><Deeper>d</Deeper></Only></Parent>
  <Lines>one
  two</Lines>
  <Secrets>
    <Password>not encoded</Password>
    <password>enc:abc</password>
    <PassWord>enc:3:!!!!</PassWord>
    <PASSWORD>enc:0:</PASSWORD>
    <Password2>enc:1:IA==</Password2>
  </Secrets>
  <Nested><Password><User>inside</User></Password></Nested>
  <Equals>a=b</Equals>
</Shapes>"""

DOCUMENTS = {"Account": ACCOUNT, "Names": NAMES, "Shapes": SHAPES}

ACCOUNT_LINES = [
    "Account.Maxuser=10",
    "Account.User1.Username=admin",
    "Account.User1.Password=topsecret",
    "Account.User2.Username=guest",
    "Account.User2.PASSWORD=x",
    "Account.UserGroup.Name=all",
    "Account.Cloud.Url=c",
    "Account.CloudAccount=d",
    "Account.CGIPermitDenyFilter.Rule1=r",
    "Account.LocalPassword.Password=lp",
    "Account.OperatorPassword=o",
    "Account.Policy.MinLength=8",
]


# ---- one value --------------------------------------------------------------------------------


def test_a_single_value_has_its_path_and_no_line_feed(running):
    assert running.request("read:Account.User1.Username") == (28, b"Account.User1.Username=admin")
    assert running.request("read:Account.Maxuser") == (18, b"Account.Maxuser=10")


def test_a_single_secret_is_given_in_its_stored_form(running):
    stored = enc_form("topsecret")
    reply = running.request("read:Account.User1.Password")
    assert reply.text == f"Account.User1.Password={stored}"
    assert reply.code == len(reply.body)


@pytest.mark.parametrize("path", ["Account..User1..Username", ".Account.User1.Username",
                                  "Account.User1.Username.", "...Account...User1.Username..."])
def test_the_path_in_the_reply_is_the_one_asked_for(running, path):
    assert running.request(f"read:{path}").text == f"{path}=admin"
    assert running.request(f"readvalue:{path}").text == "admin"


@pytest.mark.parametrize("path, code", [
    ("Account.User1", -4),  # children, but no text
    ("Account.Nothing", -4),
    ("Account.User1.Username.More", -4),
    ("Account", -4),
    ("Nothing", -4),
    ("Nothing.User1", -4),
    ("Account.user1.Username", -4),
    ("account.User1.Username", -4),
    ("Shapes.Empty", -4),
    ("Shapes.Closed", -4),
    ("Shapes.Commented", -4),  # the first child is no text
    ("Names.under_score", -4),
    ("", -7),
    (".", -7),
    ("......", -7),
    ("Account.*.Username", -4),
    ("Account.User*", -4),
    ("**", -4),
])
def test_what_is_not_there(running, path, code):
    for command in ("read", "readAndFilter"):
        assert running.request(f"{command}:{path}") == (code, b"")
    assert running.request(f"readwithlevel:{path}&0") == (code, b"")
    assert running.request(f"readvalue:{path}") == (code, b"")


def test_text_beside_children_is_a_value(running):
    assert running.request("read:Shapes").text == "Shapes=text of the root"
    assert running.request("read:Shapes.Mixed").text == "Shapes.Mixed=before"
    assert running.request("read:Shapes.Mixed.Child").text == "Shapes.Mixed.Child=c"


def test_values_are_given_as_they_stand(running):
    assert running.request("readvalue:Shapes.Data").text == '<raw> & "x"'
    assert running.request("readvalue:Shapes.Equals").text == "a=b"
    assert running.request("readvalue:Shapes.Lines").text == "one two"


def test_an_element_is_looked_for_among_all_of_its_name(running):
    assert running.request("readvalue:Shapes.Twice.A").text == "1"
    assert running.request("readvalue:Shapes.Twice.B").text == "3"


# ---- escape-coded names -----------------------------------------------------------------------


def test_a_component_is_escaped_to_match_stored_names(running):
    assert running.request("read:Names.a b_c").text == "Names.a b_c=escaped"
    assert running.request("readvalue:Names.a b_c").text == "escaped"
    assert running.request("readvalue:Names.Dash-1").text == "dash"
    assert running.request("readvalue:Names.Group A.Inner B").text == "in"


def test_a_stored_name_is_not_a_component(running):
    assert running.request("read:Names.a_20b_5Fc") == (-4, b"")
    assert running.request("read:Names.lower_c") == (-4, b"")  # escapes are upper case
    assert running.request("read:Names.UJ") == (-4, b"")  # a letter is never escaped
    assert running.request("read:Names.U_4A") == (-4, b"")


def test_a_listing_has_decoded_names_below_an_encoded_prefix(running):
    assert running.request("read:Names.*").text == lines(
        "Names.a b_c=escaped", "Names.under_score=raw", "Names.plus.name=dotted",
        "Names.Star*=star", "Names.lower_c=lower", "Names.Dash-1=dash",
        "Names.UJ=not so when asked for", "Names.Group A.Inner B=in")
    assert running.request("read:Names.Group A.*").text == "Names.Group_20A.Inner B=in\n"
    assert running.request("readAndFilter:Names.Group A.*").text == "Names.Group_20A.Inner B=in\n"


# ---- path length ------------------------------------------------------------------------------


def test_a_path_is_cut_to_its_first_511_characters(running):
    path = "Account.User1.Username"
    filler = "." * (511 - len(path))
    assert running.request(f"readvalue:{path}{filler}").text == "admin"
    assert running.request(f"readvalue:{path}{filler}.Nothing").text == "admin"
    assert running.request(f"readvalue:{filler}{path}Nothing" + "." * 89).text == "admin"
    assert running.request(f"readvalue:{filler[1:]}{path}x") == (-4, b"")


def test_the_reply_has_the_whole_path_though_it_was_cut(running):
    path = "Account.User1.Username" + "." * 1000 + "Nothing"
    assert running.request(f"read:{path}").text == f"{path}=admin"


def test_long_components_do_no_harm(running):
    for length in (63, 64, 170, 171, 255, 256, 511, 512, 600, 5000):
        for letter in ("a", "_", "\xff", "*", " "):
            component = letter * length
            for path in (component, f"Account.{component}", f"Account.{component}.*"):
                for command in ("read", "readvalue", "readAndFilter", "readattr", "readsingleattr"):
                    assert running.request(f"{command}:{path}").code in (-4, -7, 0)


# ---- readvalue --------------------------------------------------------------------------------


def test_readvalue_gives_the_bare_value(running):
    assert running.request("readvalue:Account.User1.Username") == (5, b"admin")


def test_readvalue_decodes_a_secret_but_counts_its_stored_form(running):
    stored = enc_form("topsecret")
    reply = running.request("readvalue:Account.User1.Password")
    assert reply.code == len(stored)
    assert reply.body == b"topsecret" + b"\0" * (len(stored) - len("topsecret"))
    other = running.request("readvalue:Account.User2.PASSWORD")
    assert other.body == b"x" + b"\0" * (len(enc_form("x")) - 1)


@pytest.mark.parametrize("path", ["Account.*", ".*", "*", "Account.User1.*", "Account.User1.*."])
def test_readvalue_takes_no_wildcard(running, path):
    assert running.request(f"readvalue:{path}").code in ((-4,) if path == "*" else (-7,))


def test_readvalue_of_a_wildcard_in_an_unknown_document_is_not_found(running):
    assert running.request("readvalue:Nothing.*") == (-4, b"")


def test_secrets_that_are_no_secrets(running):
    assert running.request("readvalue:Shapes.Secrets.Password") == (11, b"not encoded")
    # No second colon: nothing is decoded, and nothing is left of anything before.
    assert running.request("readvalue:Shapes.Secrets.password") == (7, b"\0" * 7)
    # Nothing valid to decode: the key must not show.
    assert running.request("readvalue:Shapes.Secrets.PassWord") == (10, b"\0" * 10)
    assert running.request("readvalue:Shapes.Secrets.PASSWORD") == (6, b"\0" * 6)
    assert running.request("readvalue:Shapes.Secrets.Password2").text == "enc:1:IA=="


def test_secrets_that_are_no_secrets_are_listed(running):
    assert running.request("read:Shapes.Secrets.*").text == lines(
        "Shapes.Secrets.Password=not encoded", "Shapes.Secrets.password=",
        "Shapes.Secrets.PassWord=", "Shapes.Secrets.PASSWORD=",
        "Shapes.Secrets.Password2=enc:1:IA==")


# ---- listings ---------------------------------------------------------------------------------


def test_a_document_is_listed_in_order_with_its_secrets_decoded(running):
    assert running.request("read:Account.*").text == lines(*ACCOUNT_LINES)


def test_a_subtree_is_listed(running):
    assert running.request("read:Account.User1.*").text == lines(*ACCOUNT_LINES[1:3])
    assert running.request("read:Shapes.Parent.*").text == "Shapes.Parent.Only.Deeper=d\n"


@pytest.mark.parametrize("path", ["Account.User1.*.", ".Account..User1.*", "Account.User1..*"])
def test_superfluous_dots_do_not_change_a_listing(running, path):
    assert running.request(f"read:{path}").text == lines(*ACCOUNT_LINES[1:3])


def test_text_comes_behind_the_lines_of_the_descendants(running):
    assert running.request("read:Shapes.*").text.startswith(lines(
        "Shapes.Twice.A=1", "Shapes.Twice.A=2", "Shapes.Twice.B=3",
        "Shapes.Mixed.Child=c", "Shapes.Mixed=before", "Shapes.Data=<raw> & \"x\""))


def test_empty_elements_and_attributes_give_no_lines(running):
    keys = [line.split("=")[0] for line in running.request("read:Shapes.*").lines]
    for name in ("Empty", "Closed", "Commented", "Parent", "Blank"):
        assert f"Shapes.{name}" not in keys


def test_an_element_that_holds_secrets_may_be_called_password(running):
    assert running.request("read:Shapes.Nested.*").text == "Shapes.Nested.Password.User=inside\n"


def test_a_listing_without_any_text_has_the_result_0(running):
    for path in ("Shapes.Closed.*", "Shapes.Empty.*", "Account.Maxuser.*"):
        for command in ("read", "readAndFilter"):
            assert running.request(f"{command}:{path}") == (0, b"")


@pytest.mark.parametrize("path", ["Account.Nothing.*", "Nothing.*", "Account.User1.Nothing.*"])
def test_a_listing_of_nothing_is_not_found(running, path):
    for command in ("read", "readAndFilter"):
        assert running.request(f"{command}:{path}") == (-4, b"")


def test_a_wildcard_in_the_middle_is_a_name_like_any_other(running):
    assert running.request("read:Account.*.*") == (-4, b"")
    assert running.request("read:*.User1") == (-4, b"")
    assert running.request("read:*.*") == (-4, b"")
    assert running.request("read:.*") == (-4, b"")  # a document called "*"


def test_everything_is_listed_with_full_keys_the_last_loaded_first(running):
    order = list(reversed(running.list_directory("/mnt/database/xml")))
    reply = running.request("read:*")
    assert reply.code == len(reply.body)
    roots = [line.split("=")[0].split(".")[0] for line in reply.lines]
    assert list(dict.fromkeys(roots)) == order
    for name in order:
        assert running.request(f"read:{name}.*").text in reply.text
    assert "Shapes=text of the root\n" in reply.text  # the root's own text, behind its children


# ---- bounds -----------------------------------------------------------------------------------


def test_long_keys_are_cut_and_do_no_harm(service):
    name = "n" * 100
    inner = f"<{name}>" * 4 + "v" + f"</{name}>" * 4
    long_name = "m" * 700
    one = service({"Deep": f"<Deep>{inner}</Deep>",
                   "Long": f"<Long><{long_name}>v</{long_name}><After>w</After></Long>"})
    key = ".".join(["Deep", *[name] * 4])
    assert one.request(f"read:{key}").text == f"{key}=v"
    assert one.request("read:Deep.*").text == f"{key[:255]}=v\n"
    long_key = f"Long.{long_name}"
    assert one.request("read:Long.*").text == f"{long_key[:255]}=v\nLong.After=w\n"
    # A prefix is cut as a key is.
    middle = ".".join(["Deep", *[name] * 3])
    assert one.request(f"read:{middle}.*").text == f"{middle[:255]}=v\n"


def test_long_secrets_are_cut_and_do_no_harm(service):
    fitting, longest = "p" * 180, "q" * 255
    one = service({"A": f"<A><Password>{enc_form(fitting)}</Password>"
                        f"<B><Password>{enc_form(longest)}</Password></B>"
                        f"<C><Password>{'r' * 1000}</Password></C>"
                        f"<D><Password>enc:2000000000:{'A' * 4000}</Password></D>"
                        f"<E><Password>enc:-1:QUJD</Password></E></A>"})
    assert one.request("read:A.Password").text == f"A.Password={enc_form(fitting)}"
    assert one.request("readvalue:A.Password").body.rstrip(b"\0").decode() == fitting
    reply = one.request("read:A.B.*").text
    assert reply == f"A.B.Password={longest}\n"
    assert one.request("read:A.C.*").text == f"A.C.Password={'r' * 255}\n"
    assert len(one.request("read:A.D.*").text) <= len("A.D.Password=\n") + 255
    assert one.request("read:A.E.*").text == "A.E.Password=ABC\n"
    for path in "BCDE":
        assert one.request(f"readvalue:A.{path}.Password").code > 0


def test_ten_thousand_reads_do_not_let_the_service_grow(running):
    if running.sanitizer is not None:
        pytest.skip("a sanitizer keeps freed memory back; it looks for leaks itself")
    worker = running.worker_pid
    mix = ["read:Account.User1.Username", "read:*", "read:Account.*", "readAndFilter:*",
           "readwithlevel:Account.User1.*&2", "readvalue:Account.User1.Password", "nosuch:",
           "readattr:Account.*", "readsingleattr:Account.User1.Level", "read:Nothing.*", "x"]

    def ask(count):
        for i in range(count):
            running.request(mix[i % len(mix)])

    ask(1000)
    before = running.memory_kilobytes(worker)
    ask(10000)
    assert running.memory_kilobytes(worker) - before < 256
