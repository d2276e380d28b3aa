// The image of a data root: a file with the tables of some objects as they stand in memory, which
// is mapped in place of reading the objects. The objects stay the truth: tables are used only as
// long as their object is the one from which they were made.
#ifndef KOVAIMAGE_H
#define KOVAIMAGE_H

#include "kovaextsa.h"

#include <stddef.h>

constexpr size_t image_step = 64;        // all parts of the file begin at multiples of it
constexpr size_t image_name_room = 48;   // "cv9/e006e01c.cvo"
constexpr size_t image_front_max = 1024; // of an object, compared with the file; has its hash
// Smaller objects are read as fast.
constexpr uint64_t image_object_least = 16 * 1024;

// One object in an image. Offsets are from the beginning of the file.
struct image_entry {
    char name[image_name_room];
    uint64_t object_size;
    int64_t written_s, written_ns;
    uint64_t front, front_size;   // the first bytes of the object
    uint64_t tables, tables_size; // of the object's kind
    uint64_t hash;                // of the tables
};

// The end of the file.
struct image_tail {
    char mark[16];    // image_mark
    uint32_t order;   // image_order, in the machine's order of bytes
    uint32_t entries; // sorted by name
    uint64_t table;   // where they are
    uint64_t hash;    // of the entries
    uint64_t size;    // of the file
    uint64_t spare[2];
};
static_assert(sizeof(image_tail) == image_step);
constexpr char image_mark[16] = "kova image 1\n";
constexpr uint32_t image_order = 0x01020304;
constexpr char image_file[] = "image1"; // in the directory "kova" of the root

uint64_t image_hash(const unsigned char *bytes, size_t size); // a change of one byte changes it

// The tables of an object. The memory stays as long as the process.
struct image_tables {
    const unsigned char *bytes;
    size_t size;
    bool proved; // as note_proved says
    std::atomic<uint64_t> *proofs;
    uint64_t proof; // a bit there
};
// Finds those of an object that has just been opened, without a stream, by this path, which is as
// the search for files composes them. False where no image can have them: then the object is read.
bool find_in_image(const data_file &object, const char *path, image_tables *tables);
void note_proved(const image_tables &tables); // what they say has been checked
void forget_images(void);                     // in tests: unmaps all, which nothing uses any more

// ---- Making one ----

// Takes the bytes of a file in order; anything but 0 is a failure.
typedef int (*image_put)(void *user, const void *bytes, size_t size);
struct image_maker {
    image_put put;
    void *user;
    uint64_t at; // bytes so far
    image_entry *entries;
    size_t count, room;
    bool failed; // put has failed
    explicit image_maker(image_put to, void *whose)
        : put(to), user(whose), at(), entries(), count(), room(), failed() {}
    image_maker(const image_maker &) = delete;
    image_maker &operator=(const image_maker &) = delete;
    ~image_maker();
};
// Adds an object with its tables. 0 or the error: KO_ERANGE where it cannot be told apart by its
// front.
int add_to_image(image_maker *maker, const char *name, const file_mark &mark,
                 const unsigned char *object, const unsigned char *tables, size_t tables_size);
int end_image(image_maker *maker); // 0 or the error

#endif
