#include "cgi_input.h"

#include <string.h>

struct text {
    const char* start;
    size_t length;
};

/* What follows "name=" in the one part of that name. Two of one name are none: another program
 * might take the other one. Return: whether there is one that is not empty. */
static int find_part(const char* text, const char* separators, const char* name,
                     struct text* found) {
    const size_t name_length = strlen(name);
    int count = 0;
    while (*text != '\0') {
        const size_t length = strcspn(text, separators);
        if (length > name_length && strncmp(text, name, name_length) == 0 &&
            text[name_length] == '=') {
            found->start = text + name_length + 1;
            found->length = length - name_length - 1;
            ++count;
        }
        text += length;
        text += strspn(text, separators);
    }
    return count == 1 && found->length > 0;
}

int cookie_value(const char* cookies, const char* name, char* value, size_t size) {
    struct text found;
    if (!find_part(cookies, "; ", name, &found) || found.length >= size) {
        return 0;
    }
    memcpy(value, found.start, found.length);
    value[found.length] = '\0';
    return 1;
}

static int hex_digit(char digit) {
    const char* const digits = "0123456789abcdef0123456789ABCDEF";
    const char* const at = digit != '\0' ? strchr(digits, digit) : NULL;
    return at != NULL ? (int)((at - digits) % 16) : -1;
}

int query_value(const char* query, const char* name, char* value, size_t size) {
    struct text found;
    size_t length = 0;
    size_t at = 0;
    if (!find_part(query, "&;", name, &found)) {
        return 0;
    }
    for (; at < found.length; ++at) {
        int byte = (unsigned char)found.start[at];
        if (byte == '+') {
            byte = ' ';
        } else if (byte == '%') {
            const int high = found.length - at > 2 ? hex_digit(found.start[at + 1]) : -1;
            const int low = high >= 0 ? hex_digit(found.start[at + 2]) : -1;
            if (low < 0) {
                return 0;
            }
            byte = high * 16 + low;
            at += 2;
        }
        if (byte < ' ' || byte == 0x7f || length + 1 >= size) {
            return 0;
        }
        value[length++] = (char)byte;
    }
    value[length] = '\0';
    return 1;
}
