// Images of data roots: finding the tables of an object, and putting a file together. What an image
// says is checked against its size before it is used, and against its hashes.
#include "kovaimage.h"

#include "kovaobject.h"
#include "kovautils.h"

#include <string.h>

#include <atomic>

// ---- The hash ----

// The content's hash on four lanes, so that the steps of one need not wait for those of another.
uint64_t image_hash(const unsigned char *bytes, size_t size) {
    constexpr size_t lanes = 4, word = sizeof(uint64_t);
    uint64_t lane[lanes] = {1, 2, 3, 4};
    for (; size >= lanes * word; bytes += lanes * word, size -= lanes * word)
        for (size_t i = 0; i < lanes; ++i) {
            uint64_t value;
            memcpy(&value, bytes + i * word, word);
            lane[i] = (lane[i] ^ value) * 0x9E3779B97F4A7C15u;
            lane[i] ^= lane[i] >> 32;
        }
    uint64_t hash = content_hash(bytes, size);
    for (const uint64_t value : lane) {
        hash = (hash ^ value) * 0x9E3779B97F4A7C15u;
        hash ^= hash >> 32;
    }
    return hash;
}

// ---- Images in memory ----

namespace {
constexpr size_t images_max = 4, path_room = 512, proved_max = 1024;

// A mapped image; set once, before it is ready.
struct root_image {
    std::atomic<bool> ready;
    char path[path_room];
    file_view view;
    const image_entry *entries;
    size_t count;
    std::atomic<uint64_t> proved[proved_max / 64]; // a bit for each entry, see note_proved
};
} // namespace
// The first ones that were used; they stay mapped. A place is taken by the thread that counts it.
static constinit root_image images[images_max] = {};
static constinit std::atomic<unsigned> images_taken = 0;

static root_image *known_image(const char *path) {
    for (root_image &image : images)
        if (image.ready.load(std::memory_order_acquire) && !strcmp(image.path, path)) return &image;
    return nullptr;
}

// The next free place; NULL if there is none.
static root_image *take_place(void) {
    if (images_taken.load(std::memory_order_relaxed) >= images_max) return nullptr;
    const unsigned place = images_taken.fetch_add(1, std::memory_order_relaxed);
    return place < images_max ? &images[place] : nullptr;
}

static bool lies_in(const file_view &view, uint64_t at, uint64_t size) {
    return at % image_step == 0 && at <= view.size && size <= view.size - at;
}

static bool is_entry_sound(const file_view &view, const image_entry &e) {
    return memchr(e.name, 0, sizeof e.name) && e.front_size && e.front_size <= image_front_max &&
           lies_in(view, e.front, e.front_size) && lies_in(view, e.tables, e.tables_size);
}

static bool is_image(const file_view &view, const image_entry **entries, size_t *count) {
    image_tail tail;
    if (view.size < sizeof tail || view.size % image_step) return false;
    memcpy(&tail, view.bytes + view.size - sizeof tail, sizeof tail);
    if (memcmp(tail.mark, image_mark, sizeof tail.mark) != 0) return false;
    if (tail.order != image_order || tail.size != view.size || tail.spare[0] || tail.spare[1] ||
        tail.entries > proved_max)
        return false;
    const uint64_t size = uint64_t{tail.entries} * sizeof(image_entry);
    if (!lies_in(view, tail.table, size)) return false;
    const void *const table = view.bytes + tail.table;
    if (image_hash(view.bytes + tail.table, size_t(size)) != tail.hash) return false;
    *entries = static_cast<const image_entry *>(table);
    *count = tail.entries;
    for (size_t i = 0; i < *count; ++i)
        if (!is_entry_sound(view, (*entries)[i])) return false;
    return true;
}

// NULL where there is no image that can be used, or no place for it.
static root_image *map_image(const char *path) {
    file_view view;
    const image_entry *entries;
    size_t count;
    if (!std_map(path, &view)) return nullptr;
    root_image *const image = is_image(view, &entries, &count) ? take_place() : nullptr;
    if (!image) {
        std_unmap(&view);
        return nullptr;
    }
    strcpy(image->path, path);
    image->view = view;
    image->entries = entries;
    image->count = count;
    image->ready.store(true, std::memory_order_release);
    return image;
}

// ---- Objects ----

// From "<root>\kova\cv9\NAME" the path of the root's image; *name gets "cv9/NAME" in its room.
// False for other paths.
static bool split_path(const char *path, char *image, char *name) {
    static constexpr char place[] = "\\kova\\cv9\\";
    constexpr size_t len = sizeof place - 1, kova = 6; // "\kova\"
    const char *const last = strrchr(path, '\\');
    if (!last || size_t(last + 1 - path) < len || memcmp(last + 1 - len, place, len) != 0)
        return false;
    const size_t root = size_t(last + 1 - path) - len;
    if (root + kova + sizeof image_file > path_room) return false;
    if (strlen(last + 1) + sizeof "cv9/" > image_name_room) return false;
    memcpy(image, path, root + kova);
    strcpy(image + root + kova, image_file);
    strcpy(strcpy(name, "cv9/") + 4, last + 1);
    return true;
}

static const image_entry *find_entry(const root_image *image, const char *name) {
    size_t low = 0, high = image->count;
    while (low < high) {
        const size_t middle = (low + high) / 2;
        const int order = strcmp(image->entries[middle].name, name);
        if (!order) return &image->entries[middle];
        (order < 0 ? low : high) = order < 0 ? middle + 1 : middle;
    }
    return nullptr;
}

// Is the open file still the object from which the tables were made?
static bool is_object(const root_image *image, const image_entry &entry, const data_file &object) {
    unsigned char front[image_front_max];
    const file_mark &mark = object.mark;
    if (mark.size != entry.object_size || mark.written_s != entry.written_s ||
        mark.written_ns != entry.written_ns)
        return false;
    const auto size = size_t(entry.front_size);
    return std_peek(object.number, front, size) == size &&
           !memcmp(front, image->view.bytes + entry.front, size);
}

bool find_in_image(const data_file &object, const char *path, image_tables *tables) {
    char image_path[path_room], name[image_name_room];
    if (object.mark.size < image_object_least || !split_path(path, image_path, name)) return false;
    root_image *image = known_image(image_path);
    if (!image) image = map_image(image_path);
    const image_entry *const entry = image ? find_entry(image, name) : nullptr;
    if (!entry || !is_object(image, *entry, object)) return false;
    const auto place = size_t(entry - image->entries) % proved_max;
    *tables = {image->view.bytes + entry->tables, size_t(entry->tables_size), false,
               &image->proved[place / 64], uint64_t{1} << place % 64};
    tables->proved = tables->proofs->load(std::memory_order_relaxed) & tables->proof;
    return tables->proved || image_hash(tables->bytes, tables->size) == entry->hash;
}

void note_proved(const image_tables &tables) {
    tables.proofs->fetch_or(tables.proof, std::memory_order_relaxed);
}

void forget_images(void) {
    for (root_image &image : images) {
        if (!image.ready.exchange(false)) continue;
        std_unmap(&image.view);
        for (std::atomic<uint64_t> &word : image.proved)
            word = 0;
    }
    images_taken = 0;
}

// ---- Making one ----

image_maker::~image_maker() { free_ptr(entries); }

static bool put_bytes(image_maker *maker, const void *bytes, size_t size) {
    static constexpr unsigned char zeros[image_step] = {};
    const size_t gap = (image_step - size % image_step) % image_step;
    maker->failed = maker->failed || (size && maker->put(maker->user, bytes, size)) ||
                    (gap && maker->put(maker->user, zeros, gap));
    maker->at += size + gap;
    return !maker->failed;
}

static bool make_room(image_maker *maker) {
    if (maker->count < maker->room) return true;
    const size_t room = maker->room ? 2 * maker->room : 64;
    ext_block<image_entry> larger(room);
    if (!larger.p) return false;
    if (maker->count) memcpy(larger.p, maker->entries, maker->count * sizeof *larger.p);
    free_ptr(maker->entries);
    maker->entries = larger.release();
    maker->room = room;
    return true;
}

// The bytes up to the end of the line that states the content's hash; 0 without one.
static size_t front_of(const unsigned char *object, size_t size) {
    static constexpr char key[] = "\nCONTENT=";
    constexpr size_t key_len = sizeof key - 1, needed = key_len + content_digits;
    for (size_t at = 0; at + needed <= size && at + needed <= image_front_max; ++at)
        if (!memcmp(object + at, key, key_len)) return at + needed;
    return 0;
}

int add_to_image(image_maker *maker, const char *name, const file_mark &mark,
                 const unsigned char *object, const unsigned char *tables, size_t tables_size) {
    image_entry entry = {};
    const size_t front = front_of(object, size_t(mark.size));
    if (!front || strlen(name) >= sizeof entry.name) return KO_ERANGE;
    if (!make_room(maker)) return KO_ENOMEM;
    strcpy(entry.name, name);
    entry.object_size = mark.size;
    entry.written_s = mark.written_s;
    entry.written_ns = mark.written_ns;
    entry.front = maker->at;
    entry.front_size = front;
    if (!put_bytes(maker, object, front)) return KO_EIO;
    entry.tables = maker->at;
    entry.tables_size = tables_size;
    entry.hash = image_hash(tables, tables_size);
    if (!put_bytes(maker, tables, tables_size)) return KO_EIO;
    size_t at = maker->count++;
    for (; at && strcmp(maker->entries[at - 1].name, name) > 0; --at)
        maker->entries[at] = maker->entries[at - 1];
    maker->entries[at] = entry;
    return KO_OK;
}

int end_image(image_maker *maker) {
    image_tail tail = {.order = image_order, .table = maker->at};
    const size_t size = maker->count * sizeof *maker->entries;
    const void *const entries = maker->entries;
    memcpy(tail.mark, image_mark, sizeof tail.mark);
    tail.entries = uint32_t(maker->count);
    tail.hash = image_hash(static_cast<const unsigned char *>(entries), size);
    if (!put_bytes(maker, entries, size)) return KO_EIO;
    tail.size = maker->at + sizeof tail;
    return put_bytes(maker, &tail, sizeof tail) ? KO_OK : KO_EIO;
}
