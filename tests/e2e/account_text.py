"""The document "Account" from a dictionary of settings, for tests of permissions.

Keys are dotted paths below Account without it ("User1.Username"), as the rules of permissions name
settings; a key that ends in "#Name" is an attribute. Values are texts.
"""

from xml.sax.saxutils import escape, quoteattr

from secret import enc_form

# Accounts of every sort, of which the filtered read shows some.
ACCOUNT_WITH_SECRETS = f"""<Account>
  <Maxuser>10</Maxuser>
  <User1 Level="3" AllowToShow="YES">
    <Username>admin</Username>
    <Password>{enc_form("topsecret")}</Password>
  </User1>
  <User2><Username>guest</Username><PASSWORD>{enc_form("x")}</PASSWORD></User2>
  <UserGroup><Name>all</Name></UserGroup>
  <Cloud><Url>c</Url></Cloud>
  <CloudAccount>d</CloudAccount>
  <CGIPermitDenyFilter><Rule1>r</Rule1></CGIPermitDenyFilter>
  <LocalPassword><Password>{enc_form("lp")}</Password></LocalPassword>
  <OperatorPassword>o</OperatorPassword>
  <Policy><MinLength>8</MinLength></Policy>
</Account>"""


def element_name(component):
    """The name under which an element is stored: other characters as "_" and two digits."""
    return "".join(c if c.isascii() and (c.isalnum() or c in "-*") else f"_{ord(c):02X}"
                   for c in component)


def account_text(settings):
    """The document's text. Elements stand in the order in which the settings name them first."""
    root = {"attributes": {}, "text": "", "children": {}}
    for key, value in settings.items():
        path, _, attribute = key.partition("#")
        node = root
        for component in path.split("."):
            node = node["children"].setdefault(
                element_name(component), {"attributes": {}, "text": "", "children": {}})
        if attribute:
            node["attributes"][attribute] = value
        else:
            node["text"] = value
    return _element("Account", root)


def _element(name, node):
    attributes = "".join(f" {key}={quoteattr(value)}" for key, value in node["attributes"].items())
    content = escape(node["text"]) + "".join(_element(*child) for child in node["children"].items())
    return f"<{name}{attributes}>{content}</{name}>"
