// The headers of compiled data files: their kind, what they say about their content, its hash.
#ifndef KOVAOBJECT_H
#define KOVAOBJECT_H

#include "kovautils.h"

constexpr int object_header_bound = 127; // of a line; a longer one counts as several
constexpr int content_digits = 16;
constexpr int release_room = 40;

// What the lines of a header say that are for people.
struct object_facts {
    char content[content_digits + 1]; // the hash of the content in hex digits; empty: not stated
    char release[release_room];       // the name of the release, cut to the room; empty: none
};

// Takes a header line, without its newline, into account.
void note_object_line(object_facts *facts, const char *line);

// A hash of bytes, the same on every machine. A change of a single byte always changes it.
uint64_t content_hash(const unsigned char *bytes, size_t size);

// Reads the header of a data file of any kind and hashes what follows it. False if the file has no
// complete header.
bool read_object_facts(const unsigned char *bytes, size_t size, object_facts *facts,
                       uint64_t *hash);
// Is the content that of which the header states the hash?
bool is_content_intact(const object_facts *facts, uint64_t hash);

#endif
