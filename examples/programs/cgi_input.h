/* What a request brings, taken apart exactly: a model for programs that do it in C. */
#ifndef CGI_INPUT_H
#define CGI_INPUT_H

#include <stddef.h>

/* The cookie of exactly that name in HTTP_COOKIE, as it was set.
 *
 * Return: 1 with the value and a NUL in `value`; 0 when there is none, or more than one, or when it
 * is empty or does not fit. */
int cookie_value(const char* cookies, const char* name, char* value, size_t size);

/* The parameter of exactly that name in QUERY_STRING, decoded: "+" is a blank, "%41" an "A".
 *
 * Return: as above; 0 also for a "%" that no two hexadecimal digits follow, and for control bytes.
 */
int query_value(const char* query, const char* name, char* value, size_t size);

#endif
