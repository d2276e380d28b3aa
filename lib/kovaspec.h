// Names of locales and code sets, and the file names they stand for.
#ifndef KOVASPEC_H
#define KOVASPEC_H

constexpr unsigned char path_mark = 0xFF;

// Writes the directory and the path mark, or nothing without a directory; out has room.
void pathcat_mark(char *out, const char *dir);

#endif
