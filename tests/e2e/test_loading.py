"""Which files become documents, how they are parsed, and how large a reply may be."""

import os

import pytest

from device import CONFIGURATION

ACCOUNT = "<Account><User1><Username>admin</Username></User1></Account>"
SMALLEST_CAPACITY = 262144


def skipped(device, name):
    return f"skip strxmlPath={CONFIGURATION}/{name}\n" in device.stderr()


# ---- the list ---------------------------------------------------------------------------------


def test_all_documents_are_listed_in_reverse_directory_order(service):
    device = service({f"Doc{i}": f"<Doc{i}><Value>{i}</Value></Doc{i}>" for i in range(30)})
    order = device.list_directory(CONFIGURATION)
    assert device.request("read:*").lines == [
        f"{name}.Value={name[3:]}" for name in reversed(order)]


def test_files_are_told_apart_by_their_exact_names(service):
    device = service({"Account": "<Account><V>1</V></Account>",
                      "account": "<account><V>2</V></account>",
                      "Account2": "<Account2><V>3</V></Account2>"})
    assert device.request("read:Account.V").text == "Account.V=1"
    assert device.request("read:account.V").text == "account.V=2"
    assert device.request("read:Account2.V").text == "Account2.V=3"
    assert device.request("read:ACCOUNT.V") == (-4, b"")


def test_the_file_name_finds_the_document_and_the_first_component_its_root(service):
    device = service({"File": "<Root><V>1</V></Root>"})
    assert device.request("read:File.V") == (-4, b"")
    assert device.request("read:Root.V") == (-4, b"")
    assert device.request("read:*").lines == ["Root.V=1"]


def test_a_file_with_a_dot_in_its_name_is_loaded_but_out_of_reach(service):
    device = service({"Account.xml": "<Account><V>1</V></Account>"})
    assert device.request("read:*").lines == ["Account.V=1"]
    assert device.request("read:Account.V") == (-4, b"")
    assert device.request("read:Account.xml.V") == (-4, b"")
    assert device.request("read:Account.xml") == (-4, b"")


def test_hidden_files_and_any_extension_are_loaded(service):
    device = service({".hidden": "<A><V>1</V></A>", "backup~": "<B><V>2</V></B>",
                      "x.txt": "<C><V>3</V></C>", "7": "<D><V>4</V></D>"})
    assert sorted(device.request("read:*").lines) == ["A.V=1", "B.V=2", "C.V=3", "D.V=4"]


def test_a_directory_given_with_a_slash_at_its_end_is_loaded(device):
    device.write_document("Account", ACCOUNT)
    device.start("-P", CONFIGURATION + "/")
    assert device.request("readvalue:Account.User1.Username").text == "admin"


def test_symbolic_links_are_followed(device):
    device.write_file("/mnt/elsewhere", ACCOUNT)
    device.outside(f"{CONFIGURATION}/Account").symlink_to("/mnt/elsewhere")
    device.start()
    assert device.request("readvalue:Account.User1.Username").text == "admin"


@pytest.mark.parametrize("length", [62, 63, 64, 67, 68, 127, 128, 200, 255])
def test_long_file_names_do_no_harm(service, length):
    long_name = "N" * length
    device = service({"Account": ACCOUNT, long_name: f"<{long_name}><V>1</V></{long_name}>"})
    assert device.request("readvalue:Account.User1.Username").text == "admin"
    reply = device.request(f"readvalue:{long_name}.V")
    if length <= 63:
        assert reply == (1, b"1")
    else:
        assert reply == (-4, b"")
    assert device.request("read:Account.User1.Username").code > 0
    assert device.request("read:*").code > 0


def test_names_alike_in_their_first_63_characters_do_no_harm(service):
    names = ["N" * 63 + end for end in ("", "a", "b")]
    device = service({name: f"<{name}><V>{i}</V></{name}>" for i, name in enumerate(names)})
    assert device.request("read:*").code > 0
    for name in names:
        assert device.request(f"readvalue:{name}.V").code in (1, -4)


def test_the_longest_directory_and_the_longest_name_go_together(device):
    directory = "/mnt/" + "d" * 57
    long_name = "N" * 63
    device.write_file(f"{directory}/{long_name}", f"<{long_name}><V>1</V></{long_name}>")
    device.write_file(f"{directory}/Account", ACCOUNT)
    device.start("-P", directory)
    assert device.request("readvalue:Account.User1.Username").text == "admin"
    assert device.request(f"readvalue:{long_name}.V") == (1, b"1")  # 126 characters in all


# ---- files that cannot be loaded --------------------------------------------------------------


def test_an_empty_file_is_skipped(service):
    device = service({"Account": ACCOUNT, "Network": "<Network><V>1</V></Network>", "Empty": ""})
    assert "(ifilesize <= 0)" in device.stdout()
    assert "(ifilesize <= 0)\n" not in device.stdout()
    assert "skip strxmlPath=/mnt/database/xml/Empty\n" in device.stderr()
    assert device.stderr().count("skip strxmlPath=") == 1
    assert sorted(device.request("read:*").lines) == ["Account.User1.Username=admin", "Network.V=1"]
    assert device.request("read:Empty.*") == (-4, b"")


@pytest.mark.fault("S6")
def test_a_file_that_is_not_writable_is_skipped(device):
    device.write_documents({"Account": ACCOUNT, "Fixed": "<Fixed><V>1</V></Fixed>",
                            "Secret": "<Secret><V>1</V></Secret>"})
    device.outside(f"{CONFIGURATION}/Fixed").chmod(0o444)
    device.outside(f"{CONFIGURATION}/Secret").chmod(0)
    device.start(obey_permissions=True)
    assert "open file is failed\n" * 2 in device.stdout()
    assert skipped(device, "Fixed") and skipped(device, "Secret")
    assert device.request("read:*").lines == ["Account.User1.Username=admin"]
    assert device.request("read:Fixed.V") == (-4, b"")


def test_nothing_is_loaded_from_a_read_only_file_system(device):
    device.mount_tmpfs("/mnt/other")
    device.write_file("/mnt/other/Account", ACCOUNT)
    device.set_read_only("/mnt/other")
    device.start("-P", "/mnt/other")
    assert "open file is failed\n" in device.stdout()
    assert "skip strxmlPath=/mnt/other/Account\n" in device.stderr()
    assert device.request("read:*") == (-4, b"")


@pytest.mark.fault("S6")
def test_directories_sockets_pipes_and_dangling_links_are_skipped(device):
    device.write_document("Account", ACCOUNT)
    base = device.outside(CONFIGURATION)
    (base / "Directory").mkdir()
    os.mkfifo(base / "Pipe")
    (base / "Dangling").symlink_to("/nowhere")
    device.start()
    for name in ("Directory", "Pipe", "Dangling"):
        assert skipped(device, name)
    assert device.stdout().count("open file is failed\n") >= 2
    assert device.request("read:*").lines == ["Account.User1.Username=admin"]


# ---- parsing ----------------------------------------------------------------------------------


@pytest.mark.parametrize("text", ["no markup at all", "<", ">", "<<<>>>", "<A", "</A>", " \n\t ",
                                  "<!-- comment", "<?xml", "\xff\xfe\x00\x01", "&amp;", "]]>"])
def test_a_file_that_is_no_document_is_kept_but_holds_nothing(service, text):
    device = service({"Bad": text.encode("latin-1"), "Account": ACCOUNT})
    assert device.request("read:Bad.V") == (-4, b"")
    assert device.request("read:Bad.*") == (-4, b"")
    assert device.request("read:Bad") == (-4, b"")
    assert not skipped(device, "Bad")
    assert device.request("read:*").lines == ["Account.User1.Username=admin"]


def test_a_file_that_breaks_off_keeps_its_whole_elements(service):
    device = service({"Part": "<Part><A>1</A><B>2</B><C>3"})
    assert device.request("read:Part.A").text == "Part.A=1"
    assert device.request("read:Part.B").text == "Part.B=2"


def test_an_element_that_is_closed_wrongly_does_no_harm(service):
    device = service({"Part": "<Part><A>1</A><B>2</A></Part>", "Account": ACCOUNT})
    assert device.request("readvalue:Account.User1.Username").text == "admin"
    assert device.request("read:Part.A").text == "Part.A=1"


@pytest.mark.fault("M4")
def test_deeply_nested_documents_do_no_harm(service):
    depth = 100_000
    device = service({"Deep": "<Deep>" + "<a>" * depth + "x" + "</a>" * depth + "</Deep>",
                      "Account": ACCOUNT})
    assert device.request("readvalue:Account.User1.Username").text == "admin"
    device.request("read:Deep.*")
    device.request("read:*")
    device.request("readattr:Deep.*")
    device.request("readattr:Deep.*.Level")
    assert device.request("readvalue:Account.User1.Username").text == "admin"
    assert "Exiting" not in device.stderr()


def test_line_ends_of_all_kinds_give_the_same_values(service):
    text = '<{0}><A>one\ntwo\n\nthree</A>\n<B At="one\ntwo\n">x</B>\n</{0}>\n'
    ends = {"Unix": "\n", "Dos": "\r\n", "Mac": "\r"}
    device = service({name: text.format(name).replace("\n", end).encode()
                      for name, end in ends.items()})
    for command, path in (("readvalue", "A"), ("readvalue", "B"), ("readsingleattr", "B.At")):
        replies = {name: device.request(f"{command}:{name}.{path}") for name in ends}
        assert replies["Unix"].code > 0
        assert set(replies.values()) == {replies["Unix"]}
    assert device.request("readsingleattr:Mac.B.At").text == "one\ntwo\n"


def test_carriage_returns_in_a_row_are_each_a_line_end(service):
    device = service({"A": b'<A><B At="1\r\r\n\r\n\n\r2">x</B></A>'})
    assert device.request("readsingleattr:A.B.At").text == "1\n\n\n\n\n2"


def test_text_behind_a_nul_is_ignored(service):
    device = service({"Account": ACCOUNT.encode() + b"\0<Other><V>1</V></Other> & garbage <",
                      "Half": b"<Half><A>1</A>\0<B>2</B></Half>",
                      "Nothing": b"\0<Nothing><V>1</V></Nothing>"})
    assert device.request("readvalue:Account.User1.Username").text == "admin"
    assert device.request("readvalue:Half.A").text == "1"
    assert device.request("readvalue:Half.B") == (-4, b"")
    assert device.request("read:Nothing.V") == (-4, b"")
    assert not skipped(device, "Nothing")


def test_a_byte_order_mark_and_a_declaration_are_no_content(service):
    device = service({
        "Mark": b"\xef\xbb\xbf<Mark><V>1</V></Mark>",
        "Declared": '<?xml version="1.0" encoding="UTF-8" ?>\n<!-- c -->\n'
                    "<Declared><V>2</V></Declared>",
    })
    assert device.request("readvalue:Mark.V").text == "1"
    assert device.request("readvalue:Declared.V").text == "2"


def test_bytes_above_ascii_pass_unchanged(service):
    device = service({"A": "<A><V>Küche ☃</V></A>", "L": b"<L><V>K\xfcche</V></L>"})
    assert device.request("readvalue:A.V").body == "Küche ☃".encode()
    assert device.request("readvalue:L.V").body == b"K\xfcche"


def test_entities_are_resolved(service):
    device = service({"A": "<A><V>&lt;a&gt; &amp; &quot;b&quot; &apos;c&apos; &#65;&#x42;</V></A>"})
    assert device.request("readvalue:A.V").text == "<a> & \"b\" 'c' AB"


# ---- many and large ---------------------------------------------------------------------------


def test_two_hundred_documents_of_twenty_megabytes_are_loaded_and_listed(device):
    value = "v" * 980
    documents = {f"Doc{i}": f"<Doc{i}>" + "".join(f"<Item{j}>{value}</Item{j}>" for j in range(101))
                 + f"</Doc{i}>" for i in range(200)}
    assert sum(map(len, documents.values())) > 20_000_000
    device.write_documents(documents)
    device.start()
    order = reversed(device.list_directory(CONFIGURATION))
    expected = "".join(f"{name}.Item{j}={value}\n" for name in order for j in range(101))
    reply = device.request("read:*")
    assert reply.code == len(expected)
    assert reply.body == expected.encode()
    one = device.request("read:Doc7.*")
    assert one.body == "".join(f"Doc7.Item{j}={value}\n" for j in range(101)).encode()


# ---- the reply capacity -----------------------------------------------------------------------


def value_that_fills(key, length):
    """A value whose single-value reply "key=value" is `length` bytes long."""
    return "v" * (length - len(key) - 1)


def start_with_values(device, lengths):
    """Starts on a second directory, so that the first one alone makes the capacity."""
    elements = "".join(f"<V{i}>{value_that_fills(f'Big.V{i}', length)}</V{i}>"
                       for i, length in enumerate(lengths))
    device.write_file("/mnt/other/Big", f"<Big>{elements}</Big>")
    device.start("-P", "/mnt/other")
    return [device.request(f"read:Big.V{i}").code for i in range(len(lengths))]


def default_directory_total(device):
    base = device.outside(CONFIGURATION)
    names = [".", "..", *os.listdir(base)]
    return sum(os.stat(base / name).st_size for name in names)


def test_the_capacity_is_never_below_its_smallest_value(device):
    device.write_document("Filler", "x" * 100_000)
    lengths = [SMALLEST_CAPACITY - 1, SMALLEST_CAPACITY, SMALLEST_CAPACITY + 1]
    assert start_with_values(device, lengths) == [*lengths[:2], -8]


def test_the_capacity_is_the_size_of_all_entries_of_the_default_directory(device):
    device.write_document("Filler", "x" * 299_000)
    device.write_file(f"{CONFIGURATION}/Second", "y" * 1000)
    device.make_directory(f"{CONFIGURATION}/Directory")
    capacity = default_directory_total(device)
    assert capacity > 300_000
    lengths = [capacity, capacity + 1]
    assert start_with_values(device, lengths) == [capacity, -8]


@pytest.mark.parametrize("below", [1, 0])
def test_the_capacity_begins_to_grow_at_its_smallest_value(device, below):
    device.write_document("Filler", "x")
    total = default_directory_total(device)
    device.write_document("Filler", "x" * (1 + SMALLEST_CAPACITY - below - total))
    assert default_directory_total(device) == SMALLEST_CAPACITY - below
    lengths = [SMALLEST_CAPACITY, SMALLEST_CAPACITY + 1]
    assert start_with_values(device, lengths) == [SMALLEST_CAPACITY, -8]


def test_the_capacity_does_not_come_from_the_given_directory(device):
    device.write_file("/mnt/other/Filler", "x" * 1_000_000)
    lengths = [SMALLEST_CAPACITY, SMALLEST_CAPACITY + 1]
    assert start_with_values(device, lengths) == [SMALLEST_CAPACITY, -8]


def test_a_scan_that_fails_leaves_the_capacity(device):
    device.outside(CONFIGURATION).rmdir()
    lengths = [SMALLEST_CAPACITY, SMALLEST_CAPACITY + 1]
    assert start_with_values(device, lengths) == [SMALLEST_CAPACITY, -8]
    assert "prsize: No such file or directory\n" in device.stderr()


def test_an_entry_that_cannot_be_examined_is_reported_and_not_counted(device):
    device.outside(f"{CONFIGURATION}/Dangling").symlink_to("/nowhere")
    device.write_document("Filler", "x" * 300_000)
    base = device.outside(CONFIGURATION)
    capacity = sum(os.stat(base / name).st_size for name in (".", "..", "Filler"))
    assert start_with_values(device, [capacity, capacity + 1]) == [capacity, -8]
    assert "Couldn't stat Dangling, error : No such file or directory\n" in device.stderr()


# A listing is held against the capacity line by line, by value and not by key.


def test_a_line_of_a_listing_fits_when_value_and_two_bytes_fit(device):
    fitting = "v" * (SMALLEST_CAPACITY - 2)
    device.write_file("/mnt/other/Fits", f"<Fits><V>{fitting}</V></Fits>")
    device.write_file("/mnt/other/Over", f"<Over><V>{fitting}v</V></Over>")
    device.start("-P", "/mnt/other")
    assert device.request("read:Fits.*").body == f"Fits.V={fitting}\n".encode()
    assert device.request("read:Over.*") == (-8, b"")
    assert device.request("readAndFilter:Over.*") == (-8, b"")
    assert device.request("readwithlevel:Over.*&0") == (-8, b"")


def test_the_lines_before_count_with_their_keys(device):
    first = len("Fits.A=") + 1000 + 1
    value = "v" * (SMALLEST_CAPACITY - 2 - first)
    for name, text in (("Fits", value), ("Over", value + "v")):
        device.write_file(f"/mnt/other/{name}",
                          f"<{name}><A>{'a' * 1000}</A><B>{text}</B></{name}>")
    device.start("-P", "/mnt/other")
    assert device.request("read:Fits.*").code == first + len("Fits.B=") + len(value) + 1
    assert device.request("read:Over.*") == (-8, b"")


def test_everything_together_must_fit_the_capacity(device):
    """Each document fits for itself; their total decides."""
    total = len("A.V=\n") + len("B.V=\n")
    for extra, fits in ((0, True), (1, False)):
        device.write_file(f"/mnt/other{extra}/A", "<A><V>" + "a" * 200_000 + "</V></A>")
        rest = SMALLEST_CAPACITY - total - 200_000 + extra
        device.write_file(f"/mnt/other{extra}/B", "<B><V>" + "b" * rest + "</V></B>")
        device.start("-P", f"/mnt/other{extra}")
        reply = device.request("read:*")
        assert reply.code == (SMALLEST_CAPACITY if fits else -8)
        assert device.request("read:A.*").code > 0
        assert device.request("read:B.*").code > 0
        device.stop()


def test_a_failing_listing_of_one_document_fails_the_read_of_everything(device):
    device.write_file("/mnt/other/Small", "<Small><V>1</V></Small>")
    device.write_file("/mnt/other/Big", "<Big><V>" + "v" * SMALLEST_CAPACITY + "</V></Big>")
    device.start("-P", "/mnt/other")
    assert device.request("read:*") == (-8, b"")
    assert device.request("read:Small.*").text == "Small.V=1\n"


def test_attribute_lines_are_held_against_the_capacity_with_their_keys(device):
    fitting = "v" * (SMALLEST_CAPACITY - 2 - len("Fits.E.At"))
    for name, text in (("Fits", fitting), ("Over", fitting + "v")):
        device.write_file(f"/mnt/other/{name}",
                          f'<{name}><E Aa="a" At="{text}" Be="b">x</E><F Ce="c"/></{name}>')
    device.start("-P", "/mnt/other")
    device.forget_output()
    assert device.request("readattr:Fits.E.At").body == f"Fits.E.At={fitting}\n".encode()
    assert device.request("readattr:Over.E.At") == (-7, b"")
    assert device.stderr() == "ERR_PARAMETER\n"
    assert device.request("readattr:Over.E.#") == (-7, b"")
    assert device.stderr() == "ERR_PARAMETER\n"  # that mode fails without the message
    # In a walk the line that does not fit is dropped, and with it the rest of that element's.
    assert device.request("readattr:Over.*").text == "Over.E.Aa=a\nOver.F.Ce=c\n"
    assert device.stderr() == "ERR_PARAMETER\n"
    assert device.request("readsingleattr:Over.E.At").code == len(fitting) + 1
