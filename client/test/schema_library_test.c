/* libveltrancord-schema as a C99 program sees it: on a description of its own, on none, and on one
 * with a mistake. Exits with 0 when all is well. */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>
#include <veltrancord/schema.h>

static const char network[] =
    "<xs:schema xmlns:xs=\"http://www.w3.org/2001/XMLSchema\">\n"
    "<xs:element name=\"Network\"><xs:complexType><xs:all>\n"
    "<xs:element name=\"Mtu\" minOccurs=\"0\" default=\"1500\"><xs:annotation>\n"
    "<xs:documentation xml:lang=\"en\">Largest packet</xs:documentation>\n"
    "<xs:documentation xml:lang=\"de\">Gr\xc3\xb6\xc3\x9ftes Paket</xs:documentation>\n"
    "<xs:appinfo><unit>byte</unit></xs:appinfo></xs:annotation>\n"
    "<xs:complexType><xs:simpleContent><xs:extension base=\"Mtu\">\n"
    "<xs:attribute name=\"Level\" type=\"xs:integer\" default=\"3\"/>\n"
    "<xs:attribute name=\"DispatchW\" type=\"xs:string\" default=\"/bin/apply\"/>\n"
    "</xs:extension></xs:simpleContent></xs:complexType></xs:element>\n"
    "<xs:element name=\"Dhcp\" minOccurs=\"0\"><xs:simpleType><xs:restriction base=\"xs:string\">\n"
    "<xs:enumeration value=\"YES\"/><xs:enumeration value=\"NO\"/>\n"
    "</xs:restriction></xs:simpleType></xs:element>\n"
    "<xs:element name=\"Speed\" minOccurs=\"0\"><xs:simpleType><xs:restriction "
    "base=\"xs:string\">\n"
    "<xs:enumeration value=\"auto\"/><xs:enumeration value=\"100\"/>\n"
    "</xs:restriction></xs:simpleType></xs:element>\n"
    "<xs:element name=\"Password\" minOccurs=\"0\"><xs:simpleType><xs:restriction "
    "base=\"xs:string\">\n"
    "<xs:minLength value=\"6\"/><xs:maxLength value=\"20\"/><xs:pattern value=\"[a-z]*\"/>\n"
    "</xs:restriction></xs:simpleType></xs:element>\n"
    "</xs:all></xs:complexType></xs:element>\n"
    "<xs:simpleType name=\"Mtu\"><xs:restriction base=\"xs:integer\">\n"
    "<xs:minInclusive value=\"68\"/><xs:maxInclusive "
    "value=\"9000\"/></xs:restriction></xs:simpleType>\n"
    "</xs:schema>\n";

static int failures = 0;

static void expect(int holds, const char* what) {
    if (!holds) {
        (void)fprintf(stderr, "fails: %s\n", what);
        ++failures;
    }
}

static void expect_text(const char* found, const char* wanted, const char* what) {
    if (strcmp(found, wanted) != 0) {
        (void)fprintf(stderr, "fails: %s: \"%s\" and not \"%s\"\n", what, found, wanted);
        ++failures;
    }
}

static void write_file(const char* folder, const char* name, const char* text) {
    char path[256];
    FILE* file = NULL;
    (void)snprintf(path, sizeof path, "%s/%s", folder, name);
    file = fopen(path, "w");
    expect(file != NULL && fputs(text, file) >= 0 && fclose(file) == 0, path);
}

static void check_values(struct veltrancord_schema* schema) {
    struct veltrancord_violation wrong;
    expect(veltrancord_schema_check(schema, "Network.Mtu", "1400", &wrong) == VELTRANCORD_OK,
           "a value in range fits");
    expect_text(wrong.reason, "", "there is no reason");
    expect(
        veltrancord_schema_check(schema, "Network.Mtu", "9001", &wrong) == VELTRANCORD_NOT_ALLOWED,
        "a value out of range does not");
    expect_text(wrong.rule, "maxInclusive", "the rule");
    expect_text(wrong.nearest, "9000", "the nearest");
    expect(strstr(wrong.reason, "9001") != NULL, "the reason tells the value");
    expect(
        veltrancord_schema_check(schema, "Network.Mut", "1400", &wrong) == VELTRANCORD_NOT_ALLOWED,
        "a path that is not described");
    expect_text(wrong.rule, "undescribed", "the rule");
    expect_text(wrong.nearest, "Network.Mtu", "the nearest path");
    expect(veltrancord_schema_check(schema, "Network.Password", "kurz", &wrong) ==
               VELTRANCORD_NOT_ALLOWED,
           "a secret that is too short");
    expect(strstr(wrong.reason, "kurz") == NULL, "a secret is not shown");
    expect(veltrancord_schema_check(schema, "Free.Thing", "1", NULL) == VELTRANCORD_NOT_DESCRIBED,
           "a document without a description");
    expect(veltrancord_schema_check(schema, "Broken.Thing", "1", &wrong) == VELTRANCORD_UNPARSABLE,
           "a description with a mistake");
    expect(strstr(wrong.reason, "Broken.xsd:1: ") != NULL, "its file and line are told");
    expect(
        veltrancord_schema_check(NULL, "Network.Mtu", "1", NULL) == VELTRANCORD_INVALID_USE &&
            veltrancord_schema_check(schema, NULL, "1", NULL) == VELTRANCORD_INVALID_USE &&
            veltrancord_schema_check(schema, "Network.Mtu", NULL, NULL) == VELTRANCORD_INVALID_USE,
        "null is refused");
}

static void check_number(struct veltrancord_schema* schema) {
    struct veltrancord_description told;
    expect(
        veltrancord_schema_describe(schema, "Network.Mtu", "de_AT.UTF-8", &told) == VELTRANCORD_OK,
        "a setting is described");
    expect(told.kind == VELTRANCORD_KIND_INTEGER, "its kind");
    expect_text(told.label, "Gr\xc3\xb6\xc3\x9ftes Paket", "its label in German");
    expect_text(told.help, "", "its help");
    expect_text(told.type, "Mtu", "its type");
    expect_text(told.allowed, "a whole number from 68 to 9000", "what it may be");
    expect_text(told.default_value, "1500", "its default");
    expect_text(told.minimum, "68", "its minimum");
    expect_text(told.maximum, "9000", "its maximum");
    expect_text(told.unit, "byte", "its unit");
    expect_text(told.level, "3", "its level");
    expect_text(told.program, "/bin/apply", "its program");
    expect(told.has_default == 1 && told.is_secret == 0 && told.choice_count == 0 &&
               told.choices == NULL && told.min_length == -1 && told.max_length == -1,
           "what it does not have");
}

static void check_other_kinds(struct veltrancord_schema* schema) {
    struct veltrancord_description told;
    expect(veltrancord_schema_describe(schema, "Network.Dhcp", "fr", &told) == VELTRANCORD_OK &&
               told.kind == VELTRANCORD_KIND_BOOLEAN && told.choice_count == 2 &&
               strcmp(told.choices[0], "YES") == 0 && strcmp(told.choices[1], "NO") == 0 &&
               told.has_default == 0,
           "YES and NO");
    expect(veltrancord_schema_describe(schema, "Network.Speed", "", &told) == VELTRANCORD_OK &&
               told.kind == VELTRANCORD_KIND_CHOICE,
           "a choice");
    expect(veltrancord_schema_describe(schema, "Network.Password", NULL, &told) == VELTRANCORD_OK &&
               told.kind == VELTRANCORD_KIND_TEXT && told.is_secret == 1 && told.min_length == 6 &&
               told.max_length == 20 && strcmp(told.pattern, "[a-z]*") == 0,
           "a secret text");
    expect(veltrancord_schema_describe(schema, "Network", NULL, &told) == VELTRANCORD_OK &&
               told.kind == VELTRANCORD_KIND_GROUP,
           "a group");
    expect(
        veltrancord_schema_describe(schema, "Network.None", NULL, &told) == VELTRANCORD_NOT_FOUND,
        "a path that is not described");
    expect(veltrancord_schema_describe(schema, "Free.Thing", NULL, &told) ==
                   VELTRANCORD_NOT_DESCRIBED &&
               strcmp(told.label, "") == 0,
           "a document without a description");
    expect(
        veltrancord_schema_describe(schema, "Broken.Thing", NULL, &told) == VELTRANCORD_UNPARSABLE,
        "a description with a mistake");
}

static void check_usual_directory(const char* folder) {
    expect(setenv("VELTRANCORD_SCHEMA", folder, 1) == 0, "the environment");
    expect(veltrancord_check("Network.Mtu", "68") == VELTRANCORD_OK &&
               veltrancord_check("Network.Mtu", "67") == VELTRANCORD_NOT_ALLOWED &&
               veltrancord_check("Free.Thing", "67") == VELTRANCORD_NOT_DESCRIBED &&
               veltrancord_check(NULL, "67") == VELTRANCORD_INVALID_USE,
           "one question");
    expect(setenv("VELTRANCORD_SCHEMA", "/nonexistent", 1) == 0, "the environment");
    expect(veltrancord_check("Network.Mtu", "67") == VELTRANCORD_NOT_DESCRIBED,
           "a directory that is not there describes nothing");
}

static void remove_files(const char* folder) {
    char path[256];
    (void)snprintf(path, sizeof path, "%s/Network.xsd", folder);
    (void)unlink(path);
    (void)snprintf(path, sizeof path, "%s/Broken.xsd", folder);
    (void)unlink(path);
    (void)rmdir(folder);
}

int main(void) {
    char folder[] = "/tmp/veltrancord-schema-XXXXXX";
    struct veltrancord_schema* schema = NULL;
    if (mkdtemp(folder) == NULL) {
        perror(folder);
        return 1;
    }
    write_file(folder, "Network.xsd", network);
    write_file(folder, "Broken.xsd", "<nothing/>\n");
    expect(veltrancord_schema_open(folder, NULL) == VELTRANCORD_INVALID_USE, "null is refused");
    expect(veltrancord_schema_open(folder, &schema) == VELTRANCORD_OK && schema != NULL,
           "a directory is taken into use");
    check_values(schema);
    check_number(schema);
    check_other_kinds(schema);
    veltrancord_schema_close(schema);
    veltrancord_schema_close(NULL);
    check_usual_directory(folder);
    remove_files(folder);
    return failures == 0 ? 0 : 1;
}
