#include "snapshot.h"

#include <stdlib.h>
#include <string.h>

static size_t count_lines(const char* text) {
    size_t lines = 0;
    while (*text != '\0') {
        ++lines;
        text += strcspn(text, "\n");
        text += *text == '\n';
    }
    return lines;
}

/* Settings of one path stay in the order of the text. */
static int compare_entries(const void* left, const void* right) {
    const struct snapshot_entry* one = left;
    const struct snapshot_entry* other = right;
    const int order = strcmp(one->path, other->path);
    return order != 0 ? order : (one->path > other->path) - (one->path < other->path);
}

/* Ends paths and values where they end; line feeds inside a value stay. */
static size_t cut_into_entries(char* text, struct snapshot_entry* entries) {
    char* line_feed = NULL; /* behind the line before */
    size_t count = 0;
    while (*text != '\0') {
        char* const end = text + strcspn(text, "\n");
        char* const equals = memchr(text, '=', (size_t)(end - text));
        char* const next = *end == '\n' ? end + 1 : end;
        if (equals != NULL) {
            if (line_feed != NULL) {
                *line_feed = '\0';
            }
            *equals = '\0';
            entries[count].path = text;
            entries[count].value = equals + 1;
            ++count;
        }
        line_feed = *end == '\n' ? end : NULL;
        text = next;
    }
    if (line_feed != NULL) {
        *line_feed = '\0';
    }
    return count;
}

int snapshot_take(struct snapshot* snapshot, char* text) {
    const struct snapshot empty = {NULL, NULL, 0};
    const size_t lines = text != NULL ? count_lines(text) : 0;
    *snapshot = empty;
    if (lines == 0) {
        free(text);
        return 1;
    }
    snapshot->text = text;
    snapshot->entries = malloc(lines * sizeof *snapshot->entries);
    if (snapshot->entries == NULL) {
        snapshot_release(snapshot);
        return 0;
    }
    snapshot->count = cut_into_entries(text, snapshot->entries);
    qsort(snapshot->entries, snapshot->count, sizeof *snapshot->entries, compare_entries);
    return 1;
}

void snapshot_release(struct snapshot* snapshot) {
    const struct snapshot empty = {NULL, NULL, 0};
    free(snapshot->entries);
    free(snapshot->text);
    *snapshot = empty;
}

int comparison_next(struct comparison* comparison, const struct snapshot_entry** before,
                    const struct snapshot_entry** after) {
    const struct snapshot* old = comparison->before;
    const struct snapshot* young = comparison->after;
    while (comparison->next_before < old->count || comparison->next_after < young->count) {
        const struct snapshot_entry* one =
            comparison->next_before < old->count ? &old->entries[comparison->next_before] : NULL;
        const struct snapshot_entry* other =
            comparison->next_after < young->count ? &young->entries[comparison->next_after] : NULL;
        int order = one == NULL ? 1 : -1;
        if (one != NULL && other != NULL) {
            order = strcmp(one->path, other->path);
        }
        comparison->next_before += order <= 0;
        comparison->next_after += order >= 0;
        if (order != 0 || strcmp(one->value, other->value) != 0) {
            *before = order <= 0 ? one : NULL;
            *after = order >= 0 ? other : NULL;
            return 1;
        }
    }
    return 0;
}
