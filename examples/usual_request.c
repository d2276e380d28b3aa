/* The usual request: a date, a number, an amount and words in a locale's conventions.
 *   usual_request de_DE
 * Locales of the code set "unicode" hold UTF-16; what is printed is UTF-8. */
#include <kova_host.h>

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

static ko_lc_t loc;

static int by_locale(const void *a, const void *b) {
    const char *left = *(const char *const *)a, *right = *(const char *const *)b;
    return ko_utf8scoll(loc, left, strlen(left), right, strlen(right));
}

static void print_wide(const char *label, const ko_wchar_t *text) {
    char utf8[256];
    const int64_t len = ko_wcstoutf8s(loc, utf8, sizeof utf8, text, (size_t)ko_wcslen(text), NULL);
    if (len >= 0 && len < (int64_t)sizeof utf8) printf("%-8s %.*s\n", label, (int)len, utf8);
}

int main(int argc, char **argv) {
    char spec[64];
    snprintf(spec, sizeof spec, "%s.unicode", argc > 1 ? argv[1] : "de_DE");
    const int error = ko_open_locale(&loc, NULL, spec, 0);
    if (error) {
        fprintf(stderr, "%s: %s\n", spec, ko_error_text(error));
        return 1;
    }
    const ko_tm_t day = {.tm_year = 126, .tm_mon = 2, .tm_mday = 3, .tm_wday = 2, .tm_yday = 61};
    ko_wchar_t out[256];
    if (ko_wcsftime(loc, out, 256, u"%A, %x", &day)) print_wide("date", out);
    if (ko_wcsfnum(loc, out, 256, u"%'.2f", 1234567.891) > 0) print_wide("number", out);
    if (ko_wcsfmon(loc, out, 256, u"%n", 99.5) > 0) print_wide("amount", out);

    const char *words[] = {"Zürich", "Äpfel", "zebra", "Apfel", "öl", "ofen"};
    qsort(words, sizeof words / sizeof *words, sizeof *words, by_locale);
    printf("words   ");
    for (size_t i = 0; i < sizeof words / sizeof *words; i++)
        printf(" %s", words[i]);
    printf("\n");
    ko_close_locale(loc);
    return 0;
}
