"""What the filtered read hides, and what the read with a level refuses."""

import pytest

from account_text import ACCOUNT_WITH_SECRETS as ACCOUNT
from wire import lines

NETWORK = """<Network>
  <Lan Level="3"><Ip Level="2">10.0.0.1</Ip><Mask>255.0.0.0</Mask></Lan>
  <Wan Level="1"><Ip>1.2.3.4</Ip></Wan>
  <None><Ip>5.6.7.8</Ip></None>
  <Zero Level="0"><V>0</V></Zero>
  <Text Level="abc"><V>t</V></Text>
  <Mixed Level=" 2x"><V>m</V></Mixed>
  <Minus Level="-5"><V>n</V></Minus>
  <Empty Level=""><V>e</V></Empty>
  <Long Level="{long}"><V>l</V></Long>
  <Fits Level="{fits}"><V>f</V></Fits>
</Network>""".format(long="1" + " " * 127, fits="1" + " " * 126)

SHOW = """<Show>
  <Plain>p</Plain>
  <No AllowToShow="no">n</No>
  <NO AllowToShow="NO">n2</NO>
  <Yes AllowToShow="yes">y</Yes>
  <YES AllowToShow="YeS">y2</YES>
  <Other AllowToShow="maybe">o</Other>
  <EmptyValue AllowToShow="">e</EmptyValue>
  <WrongCase allowtoshow="NO">w</WrongCase>
  <Hidden AllowToShow="NO"><Inside>i</Inside><Visible AllowToShow="YES">v</Visible></Hidden>
  <Top>
    <Dark AllowToShow="NO">d<Lamp>shines</Lamp></Dark>
    <Deep><Bottom AllowToShow="NO">b</Bottom><Floor>f</Floor></Deep>
  </Top>
  <Bare/>
</Show>"""

DOCUMENTS = {"Account": ACCOUNT, "Network": NETWORK, "Show": SHOW}


# ---- readAndFilter ----------------------------------------------------------------------------


def test_hidden_prefixes_are_left_out(running):
    assert running.request("readAndFilter:Account.*").text == lines(
        "Account.Maxuser=10", "Account.Policy.MinLength=8")


def test_hidden_prefixes_hide_below_them_too(running):
    for path in ("Account.User1.*", "Account.UserGroup.*", "Account.Cloud.*",
                 "Account.CGIPermitDenyFilter.*", "Account.LocalPassword.*"):
        assert running.request(f"readAndFilter:{path}") == (0, b"")


def test_a_filtered_read_of_a_single_value_hides_nothing(running):
    assert running.request("readAndFilter:Account.User1.Username").text == (
        "Account.User1.Username=admin")
    assert running.request("readAndFilter:Show.No").text == "Show.No=n"


def test_elements_that_must_not_be_shown_are_left_out(running):
    assert running.request("readAndFilter:Show.*").text == lines(
        "Show.Plain=p", "Show.Yes=y", "Show.YES=y2", "Show.WrongCase=w",
        # A hidden element inside hides its own text only, not what stands below it.
        "Show.Top.Dark.Lamp=shines", "Show.Top.Deep.Floor=f")


def test_the_top_of_a_filtered_listing_is_where_the_path_points_to(running):
    assert running.request("readAndFilter:Show.Hidden.*").text == lines(
        "Show.Hidden.Inside=i", "Show.Hidden.Visible=v")
    assert running.request("readAndFilter:Show.Top.*").text == lines("Show.Top.Deep.Floor=f")


def test_a_plain_read_shows_hidden_elements(running):
    assert running.request("read:Show.*").text == lines(
        "Show.Plain=p", "Show.No=n", "Show.NO=n2", "Show.Yes=y", "Show.YES=y2", "Show.Other=o",
        "Show.EmptyValue=e", "Show.WrongCase=w", "Show.Hidden.Inside=i", "Show.Hidden.Visible=v",
        "Show.Top.Dark.Lamp=shines", "Show.Top.Dark=d", "Show.Top.Deep.Bottom=b",
        "Show.Top.Deep.Floor=f")
    assert running.request("readwithlevel:Show.*&0").text == running.request("read:Show.*").text


def test_a_filtered_read_of_everything_leaves_the_hidden_out(running):
    reply = running.request("readAndFilter:*")
    keys = [line.split("=")[0] for line in reply.lines]
    assert "Account.Maxuser" in keys and "Account.Policy.MinLength" in keys
    for prefix in ("Account.User", "Account.Cloud", "Account.CGIPermitDenyFilter",
                   "Account.LocalPassword", "Account.OperatorPassword"):
        assert not [key for key in keys if key.startswith(prefix)]
    assert "Show.No" not in keys and "Show.Plain" in keys
    # Here the top is the root element; what is hidden below it hides its text only.
    assert "Show.Hidden.Inside" in keys and "Show.Hidden.Visible" in keys
    assert "Network.Lan.Ip" in keys


# ---- readwithlevel ----------------------------------------------------------------------------


@pytest.mark.parametrize("argument, code", [
    ("Network.Lan.*&2", None), ("Network.Lan.*&3", None), ("Network.Lan.*&4", -4),
    ("Network.Wan.*&2", -4), ("Network.Wan.*&1", None), ("Network.None.*&2", -4),
    ("Network.None.*&1", -4), ("Network.None.*&0", None), ("Network.None.*&-1", None),
    ("Network.None.*&", None), ("Network.None.*&abc", None),
    ("Network.Zero.*&1", -4), ("Network.Zero.*&0", None),
    ("Network.Text.*&1", -4), ("Network.Mixed.*&2", None), ("Network.Mixed.*&3", -4),
    ("Network.Minus.*&1", -4), ("Network.Minus.*&0", None), ("Network.Empty.*&1", -4),
    ("Network.Long.*&1", -4), ("Network.Fits.*&1", None), ("Network.Long.*&0", None),
    ("Network.Lan.*& 2x", None), ("Network.Lan.*&+3", None), ("Network.Lan.*&99999999999", -4),
    ("Network.Lan.Ip&2", None), ("Network.Lan.Ip&3", -4), ("Network.Lan.Ip&1", None),
    ("Network.Lan.Mask&1", -4), ("Network.Lan.Mask&0", None),
    ("Network.*&1", -4), ("Network.*&0", None),
    ("*&0", None), ("*&1", -4), ("*&-3", None), ("*", -4), ("Network.Lan.*", -4), ("", -4),
    ("&", -7), ("&1", -7), (".&0", -7),
])
def test_levels(running, argument, code):
    reply = running.request(f"readwithlevel:{argument}")
    if code is not None:
        assert reply == (code, b"")
    else:
        assert reply.code > 0
        assert reply == running.request("read:" + argument.rpartition("&")[0])


def test_the_level_stands_behind_the_last_ampersand(running):
    # The path holds an ampersand then, and names nothing here.
    assert running.request("readwithlevel:Network.Lan.*&9&2") == (-4, b"")
    assert running.request("readwithlevel:Network&Lan&2") == (-4, b"")


def test_a_path_may_hold_an_ampersand(service):
    one = service({"A": "<A><x_26y Level='2'>1</x_26y></A>"})
    assert one.request("readwithlevel:A.x&y&2").text == "A.x&y=1"
    assert one.request("readwithlevel:A.x&y") == (-4, b"")
