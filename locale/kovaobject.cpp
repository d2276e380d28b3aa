// The headers of compiled data files, and the hash of what follows them.
#include "kovaobject.h"

#include "kova_host.h"

#include <bit>
#include <string.h>

static const char *value_of(const char *line, const char *key) {
    const size_t len = strlen(key);
    return strncmp(line, key, len) ? nullptr : line + len;
}

void note_object_line(object_facts *facts, const char *line) {
    if (const char *digits = value_of(line, "CONTENT=")) {
        const bool whole = strlen(digits) == content_digits;
        memcpy(facts->content, whole ? digits : "", whole ? content_digits + 1 : 1);
    } else if (const char *name = value_of(line, "RELEASE=")) {
        const size_t len = strnlen(name, release_room - 1);
        memcpy(facts->release, name, len);
        facts->release[len] = 0;
    }
}

// ---- The hash ----

static uint64_t little_endian(const unsigned char *bytes, size_t count) {
    uint64_t word = 0;
    if (count == sizeof word && std::endian::native == std::endian::little) {
        memcpy(&word, bytes, sizeof word);
        return word;
    }
    for (size_t i = 0; i < count; ++i)
        word |= uint64_t{bytes[i]} << 8 * i;
    return word;
}

// Each step maps the values so far one to one, so that those of two texts which differ in one word
// stay different.
static uint64_t mixed(uint64_t hash, uint64_t word) {
    hash = (hash ^ word) * 0x9E3779B97F4A7C15u;
    return hash ^ hash >> 32;
}

uint64_t content_hash(const unsigned char *bytes, size_t size) {
    uint64_t hash = mixed(0x6B6F7661, size);
    for (; size >= sizeof hash; bytes += sizeof hash, size -= sizeof hash)
        hash = mixed(hash, little_endian(bytes, sizeof hash));
    return mixed(hash, little_endian(bytes, size));
}

// ---- Headers ----

// The third line of every kind says how many lines the header has.
static bool read_header(text_in *in, object_facts *facts) {
    char line[object_header_bound + 1];
    if (!in_header_line(in, line, object_header_bound) || !value_of(line, "FILE_TYPE="))
        return false;
    if (!in_header_line(in, line, object_header_bound) || !value_of(line, "COMPILER_VERSION="))
        return false;
    if (!in_header_line(in, line, object_header_bound)) return false;
    const int lines = header_number(line);
    for (int i = 3; i < lines; ++i) {
        if (!in_header_line(in, line, object_header_bound)) return false;
        note_object_line(facts, line);
    }
    return lines >= 3;
}

bool read_object_facts(const unsigned char *bytes, size_t size, object_facts *facts,
                       uint64_t *hash) {
    *facts = {};
    if (!bytes) return false;
    text_in in = {.pos = bytes, .end = bytes + size};
    if (!read_header(&in, facts)) return false;
    *hash = content_hash(in.pos, size_t(in.end - in.pos));
    return true;
}

bool is_content_intact(const object_facts *facts, uint64_t hash) {
    static const char digits[] = "0123456789abcdef";
    for (int i = content_digits; i-- > 0; hash >>= 4)
        if (facts->content[i] != digits[hash & 15]) return false;
    return true;
}

int ko_verify_object(const void *bytes, size_t size, uint64_t *content) {
    object_facts facts;
    uint64_t hash = 0;
    if (content) *content = 0;
    if (!bytes) return KO_ENULL;
    if (!read_object_facts(static_cast<const unsigned char *>(bytes), size, &facts, &hash))
        return KO_EOBJECT;
    if (content) *content = hash;
    return is_content_intact(&facts, hash) ? KO_OK : KO_EOBJECT;
}
