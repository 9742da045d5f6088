"""A small description of settings, for the tests of those who use one."""

SCHEMA = "/tmp/schema"
CONFIGURATION = "/mnt/database/xml"

NETWORK = """<?xml version="1.0" encoding="UTF-8"?>
<xs:schema xmlns:xs="http://www.w3.org/2001/XMLSchema">
  <xs:simpleType name="YesNo">
    <xs:restriction base="xs:string">
      <xs:enumeration value="YES"/>
      <xs:enumeration value="NO"/>
    </xs:restriction>
  </xs:simpleType>
  <xs:complexType name="Host">
    <xs:all>
      <xs:element name="Name" type="xs:string" minOccurs="0" default="host"/>
      <xs:element name="Enable" type="YesNo" minOccurs="0" default="NO"/>
    </xs:all>
  </xs:complexType>
  <xs:element name="Network">
    <xs:complexType>
      <xs:all>
        <xs:element name="Lan" minOccurs="0">
          <xs:annotation>
            <xs:documentation xml:lang="en">Wired network</xs:documentation>
            <xs:documentation xml:lang="de">Kabelnetz</xs:documentation>
          </xs:annotation>
          <xs:complexType>
            <xs:all>
              <xs:element name="Mtu" minOccurs="0" default="1500">
                <xs:annotation>
                  <xs:documentation xml:lang="en">Largest packet</xs:documentation>
                  <xs:documentation xml:lang="de">Größtes Paket</xs:documentation>
                  <xs:documentation source="help" xml:lang="en">What is longer is cut.</xs:documentation>
                  <xs:appinfo><unit>byte</unit></xs:appinfo>
                </xs:annotation>
                <xs:complexType>
                  <xs:simpleContent>
                    <xs:extension base="Mtu">
                      <xs:attribute name="Level" type="xs:integer" default="3"/>
                      <xs:attribute name="DispatchW" type="xs:string" default="/usr/sbin/apply_network"/>
                    </xs:extension>
                  </xs:simpleContent>
                </xs:complexType>
              </xs:element>
              <xs:element name="Dhcp" type="YesNo" minOccurs="0" default="YES"/>
              <xs:element name="Speed" minOccurs="0" default="auto">
                <xs:simpleType>
                  <xs:restriction base="xs:string">
                    <xs:enumeration value="auto">
                      <xs:annotation>
                        <xs:documentation xml:lang="en">as the other side can</xs:documentation>
                      </xs:annotation>
                    </xs:enumeration>
                    <xs:enumeration value="10"/>
                    <xs:enumeration value="100"/>
                  </xs:restriction>
                </xs:simpleType>
              </xs:element>
              <xs:element name="Priority" type="Priority" minOccurs="0"/>
              <xs:element name="Zone_20A" type="xs:string" minOccurs="0"/>
              <xs:element name="Password" minOccurs="0">
                <xs:simpleType>
                  <xs:restriction base="xs:string"><xs:minLength value="6"/></xs:restriction>
                </xs:simpleType>
              </xs:element>
            </xs:all>
          </xs:complexType>
        </xs:element>
        <xs:element name="Host1" type="Host" minOccurs="0"/>
        <xs:element name="Host2" type="Host" minOccurs="0"/>
      </xs:all>
    </xs:complexType>
  </xs:element>
  <xs:simpleType name="Mtu">
    <xs:restriction base="xs:integer">
      <xs:minInclusive value="68"/>
      <xs:maxInclusive value="9000"/>
    </xs:restriction>
  </xs:simpleType>
  <xs:simpleType name="Priority">
    <xs:restriction base="xs:integer">
      <xs:minInclusive value="0"/>
      <xs:maxInclusive value="3"/>
    </xs:restriction>
  </xs:simpleType>
</xs:schema>
"""

DOCUMENT = ("<Network><Lan><Mtu>1400</Mtu><Dhcp>YES</Dhcp></Lan>"
            "<Host1><Name>gate</Name></Host1></Network>")
OTHER = "<Free><Thing>1</Thing></Free>"  # a document that nothing describes


def install(device):
    """Puts the description onto the device. Return: what the tool's environment needs for it."""
    device.write_file(f"{SCHEMA}/Network.xsd", NETWORK)
    return [f"VELTRANCORD_SCHEMA={SCHEMA}"]
