// Images of data roots: conversions from an image convert as those from their objects do, an image
// that is not that of the object is left alone, and a damaged one is refused or does no harm.
#include "support/conversion_builder.h"

#include "kova_host.h"
#include "locale/kovaimage.h"

#include <memory>
#include <random>

namespace {

namespace fs = std::filesystem;

std::string byte(unsigned b) { return std::string(1, char(b)); }

// Targets of one to most bytes; every 16th is a substitute, every 17th source is left out.
void add_entries(std::vector<cv_entry> *entries, const std::string &front, unsigned first,
                 unsigned last, size_t most, unsigned more_flags = 0) {
    for (unsigned b = first; b <= last; ++b) {
        const unsigned n = b + 3 * uint8_t(front.back());
        if (n % 17 == 3) continue;
        const unsigned flags = cv_plain | more_flags | (n % 16 ? 0u : unsigned{cv_substitute});
        const std::string target = byte(n) + byte(n / 3 | 1) + byte(b) + byte(n / 2 | 8);
        entries->push_back({front + byte(b), flags, target.substr(0, most - n % 5 % most)});
    }
}

cv_object base(int target_max) {
    cv_object o;
    o.header = "FILE_TYPE=codeset_conversion_object\nCOMPILER_VERSION=9\nHEADER_LENGTH=5\n"
               "SOURCE=a test\nCONTENT=0123456789abcdef\n";
    o.target_max = target_max;
    o.ratio = "9";
    o.noshift.push_back({byte(0), cv_terminator, byte(0)});
    for (unsigned b = 1; b < 0x80; ++b)
        if (b != 'q' && b != 0x0E && b != 0x0F) o.noshift.push_back({byte(b), cv_plain, byte(b)});
    return o;
}

cv_object pairs_object(int target_max) {
    cv_object o = base(target_max);
    o.max = 2;
    for (unsigned lead = 0x81; lead < 0xC0; ++lead)
        add_entries(&o.noshift, byte(lead), 0x40, 0xBF, size_t(target_max));
    return o;
}

cv_object utf8_object() { // of characters of up to three bytes
    cv_object o = base(2);
    o.max = 3;
    for (unsigned lead = 0xC2; lead < 0xD8; ++lead)
        add_entries(&o.noshift, byte(lead), 0x80, 0xBF, 2);
    for (unsigned second = 0x80; second < 0xC0; ++second)
        add_entries(&o.noshift, "\xE4" + byte(second), 0x80, 0xBF, 2);
    return o;
}

cv_object shifted_object() { // by single bytes, into a stateless target
    cv_object o = base(3);
    o.source_stateful = 1;
    o.shifts = "0010e10f";
    o.shift_min = o.shift_max = 2;
    o.noshift.push_back({"\x0e", cv_source_shift, ""});
    for (unsigned lead = 0x41; lead < 0x80; ++lead)
        add_entries(&o.shift, byte(lead), 0x41, 0xFE, 3);
    return o;
}

cv_object to_shifted_object() {
    cv_object o = pairs_object(2);
    o.target_stateful = 1;
    o.shifts = "10e10f00";
    for (cv_entry &e : o.noshift)
        if (e.source.size() == 2) e.flags |= cv_shifted_target;
    return o;
}

struct image_output {
    std::string bytes, told;
    int fail_at = -1, puts = 0;
    ko_image_output out{put, tell, this};

    static int put(void *user, const void *bytes, size_t size) {
        image_output *const to = static_cast<image_output *>(user);
        to->bytes.append(static_cast<const char *>(bytes), size);
        return to->puts++ == to->fail_at;
    }
    static void tell(void *user, const char *name, int error, size_t size) {
        image_output *const to = static_cast<image_output *>(user);
        to->told += std::string(name) + (size ? "+" : "-") + std::to_string(error) + " ";
    }
};

// A data root in which "00010002.cvo" leads from code set 1 to 2.
struct image_root {
    temp_dir dir;
    env_hooks env;
    fs::path image = fs::path(dir.path) / "kova" / "image1";
    std::string made;

    explicit image_root(const cv_object &object) {
        env.vars["VANTORDIR"] = dir.path;
        dir.write("kova/cm3/registry", "one 1\ntwo 2\n");
        dir.write(object_name, object.str());
        image_output output;
        const char *const name = "00010002.cvo";
        EXPECT_EQ(ko_make_image(dir.path.c_str(), &name, 1, &output.out), 0);
        EXPECT_EQ(output.told, "00010002.cvo+0 ");
        made = output.bytes;
        store(made);
    }
    ~image_root() { forget_images(); }
    image_root(const image_root &) = delete;

    static constexpr char object_name[] = "kova/cv9/00010002.cvo";
    fs::path object() const { return fs::path(dir.path) / "kova" / "cv9" / "00010002.cvo"; }
    void store(const std::string &bytes) {
        forget_images();
        dir.write("kova/image1", bytes);
        fs::permissions(image, fs::perms::owner_read | fs::perms::owner_write);
    }
};

struct opened : cv_record {
    opened() : cv_record(nullptr, 0) {
        result = ko_cv_load(&handle, "two", "one", nullptr, nullptr);
    }
    bool mapped() const { return result == 1 && rec()->by_words; }
};

std::string random_text(std::mt19937 &random) {
    static const std::string frequent = "ab\x0e\x0f\xE4\xC3\x81\x42\x41\x80\xBF";
    std::string text;
    for (size_t n = random() % 24; n; --n)
        text += random() % 3 ? frequent[random() % frequent.size()] : char(random());
    if (random() % 4 == 0) text += std::string(40 + random() % 40, "a\x81\x42"[random() % 3]);
    return text;
}

// One call in one of all ways, chosen by its number. A null byte need not end a text in every code
// set.
void expect_alike(const cv_record &a, const cv_record &b, const std::string &text, unsigned call,
                  bool null_ends = true) {
    const int room = call % 5 ? 300 : int(call / 5 % 30), len = call % 3 || !null_ends ? -2 : -1;
    const std::string in = len == -1 ? text + '\0' : text;
    conv_state states[2] = {
        {1, 1, 0, 0, nullptr},
        {1, 1, 0, 0, nullptr}
    };
    conv_state *const none = nullptr;
    const bool with = call % 2;
    EXPECT_EQ(convert(a, in, room, with ? &states[0] : none, len),
              convert(b, in, room, with ? &states[1] : none, len))
        << testing::PrintToString(in);
    EXPECT_EQ(states[0].source_state, states[1].source_state);
    EXPECT_EQ(states[0].target_state, states[1].target_state);
}

} // namespace

TEST(Image, ConvertsAsTheObject) {
    std::mt19937 random(3);
    for (const cv_object &object : {pairs_object(2), pairs_object(3), pairs_object(4),
                                    utf8_object(), shifted_object(), to_shifted_object()}) {
        const image_root root(object);
        const cv_record read(object.str(), cv_from::memory);
        for (const bool again : {false, true}) {
            SCOPED_TRACE(again);
            const opened cv;
            ASSERT_TRUE(cv.mapped());
            EXPECT_EQ(ko_iconv_expansion(cv), ko_iconv_expansion(read));
            for (unsigned call = 0; call < 3000 && !HasFailure(); ++call)
                expect_alike(cv, read, random_text(random), call);
        }
        each_allocation_fails([] {
            const opened cv;
            EXPECT_TRUE(cv.result != 1 || convert(cv, "ab", 9).out == "ab");
            return cv.mapped();
        });
    }
}

// With an image and without one.
TEST(Conversion, OpeningsShareTheTablesOfAnOpenOne) {
    for (const cv_object &object : {pairs_object(2), shifted_object()})
        for (const bool mapped : {true, false}) {
            image_root root(object);
            if (!mapped) root.store("");
            const memory_hooks memory;
            const auto tables = [](const cv_record &cv) { return cv.rec()->flat_noshift; };
            ko_cache_registry(nullptr, nullptr);
            auto first = std::make_unique<opened>();
            const opened second;
            ASSERT_EQ(second.result, 1);
            EXPECT_EQ(tables(second), tables(*first));
            EXPECT_EQ(convert(*first, "\xFF", 9).error, KO_EILSEQ);
            EXPECT_EQ(second.error(), KO_OK);
            EXPECT_EQ(opened().error(), KO_OK);
            first.reset();
            EXPECT_EQ(convert(second, "ab", 9).out, "ab");
            {
                installed_hooks hooks{
                    {KO_EXT_FERROR, as_hook(+[](void *) { return 0; })}
                };
                EXPECT_NE(tables(opened()), tables(second));
            }
            root.env.vars["KO_PATH"] = root.dir.path + "/kova/cv9";
            EXPECT_NE(tables(opened()), tables(second));
            root.env.vars.erase("KO_PATH");
            EXPECT_EQ(tables(opened()), tables(second));
            root.dir.write("kova/cm3/registry", "one 1\ntwo 3\n");
            ko_cache_registry(nullptr, nullptr);
            EXPECT_EQ(opened().result, -1);
            // An empty registry in the cache is as good as none.
            ko_cache_registry(nullptr, root.dir.write("empty", "").c_str());
        }
}

TEST(Image, AnotherObjectIsRead) {
    const cv_object object = pairs_object(2);
    std::string other = object.str();
    other.replace(other.find("0123456789abcdef"), 16, "0123456789abcdee");
    const auto check = [&](bool mapped) {
        const opened cv;
        EXPECT_EQ(cv.result, 1);
        EXPECT_EQ(cv.mapped(), mapped);
        EXPECT_EQ(convert(cv, "ab", 9).out, "ab");
    };
    image_root root(object);
    const fs::file_time_type written = fs::last_write_time(root.object());
    check(true);
    {
        installed_hooks hooks{
            {KO_EXT_FERROR, as_hook(+[](void *) { return 0; })}
        };
        check(false);
    }
    fs::last_write_time(root.object(), written + std::chrono::seconds(2));
    check(false);
    fs::last_write_time(root.object(), written);
    check(true);
    root.dir.write(root.object_name, other); // of the same size and time
    fs::last_write_time(root.object(), written);
    check(false);
    root.dir.write(root.object_name, object.str() + "\n");
    fs::last_write_time(root.object(), written);
    check(false);
#ifndef _WIN32
    root.dir.write(root.object_name, object.str());
    fs::last_write_time(root.object(), written);
    check(true);
    root.store(root.made);
    fs::permissions(root.image, fs::perms::group_write, fs::perm_options::add);
    check(false);
#endif
}

TEST(Image, DamageIsFoundOrHarmless) {
    const cv_object object = shifted_object();
    image_root root(object);
    const cv_record read(object.str(), cv_from::memory);
    const std::string whole = root.made;
    std::mt19937 random(5);
    const auto check = [&](const std::string &image) {
        root.store(image);
        const opened cv;
        ASSERT_EQ(cv.result, 1);
        for (unsigned call = 0; call < 6; ++call)
            expect_alike(cv, read, random_text(random), call);
    };
    const auto flip = [&](size_t at) {
        std::string image = whole;
        image[at] = char(image[at] ^ 1 << at % 8);
        check(image);
    };
    for (size_t at = 0; at < 600 && !HasFailure(); ++at) // the first tables, the entries, the end
        flip(at < 300 ? at : whole.size() - 600 + at);
    for (int n = 0; n < 100 && !HasFailure(); ++n)
        flip(random() % whole.size());
    for (size_t size = 0; size < whole.size() && !HasFailure(); size += 1 + whole.size() / 40)
        check(whole.substr(0, size));
    check(whole.substr(0, image_step));
}

// Entries that nothing damaged, but someone wrote so.
TEST(Image, HostileEntriesAreRefused) {
    static void (*const changes[])(image_entry &) = {
        [](image_entry &) {},
        [](image_entry &e) { memset(e.name, 'x', sizeof e.name); },
        [](image_entry &e) { e.name[4] = '!'; },
        [](image_entry &e) { e.name[4] = '~'; },
        [](image_entry &e) { e.front_size = 0; },
        [](image_entry &e) { e.front_size = image_front_max + 1; },
        [](image_entry &e) { e.front += 1; },
        [](image_entry &e) { e.front = uint64_t{1} << 40; },
        [](image_entry &e) { e.tables = UINT64_MAX - image_step + 1; },
        [](image_entry &e) { e.tables_size = UINT64_MAX; },
        [](image_entry &e) { ++e.written_ns; },
        [](image_entry &e) { ++e.object_size; },
    };
    const cv_object object = pairs_object(2);
    image_root root(object);
    for (const auto &change : changes) {
        std::string image = root.made;
        image_tail tail;
        image_entry entry;
        memcpy(&tail, image.data() + image.size() - sizeof tail, sizeof tail);
        const auto table = size_t(tail.table);
        memcpy(&entry, image.data() + table, sizeof entry);
        change(entry);
        memcpy(image.data() + table, &entry, sizeof entry);
        tail.hash = image_hash(mb(image.data()) + table, tail.entries * sizeof entry);
        memcpy(image.data() + image.size() - sizeof tail, &tail, sizeof tail);
        root.store(image);
        const opened cv;
        EXPECT_EQ(cv.mapped(), &change == changes) << &change - changes;
        EXPECT_EQ(convert(cv, "ab", 9).out, "ab");
    }
}

// Damage that the hashes do not show.
TEST(Image, TablesThatDoNotFitAreRefused) {
    for (const cv_object &object : {shifted_object(), utf8_object()}) {
        image_root root(object);
        const std::string whole = root.made;
        image_tail tail;
        image_entry entry;
        memcpy(&tail, &whole[whole.size() - sizeof tail], sizeof tail);
        const auto table = size_t(tail.table);
        memcpy(&entry, &whole[table], sizeof entry);
        const auto tables = size_t(entry.tables), most = size_t(entry.tables_size);
        std::mt19937 random(7);
        const auto bytes = [](const std::string &text) {
            return reinterpret_cast<const unsigned char *>(text.data());
        };
        int mapped = 0;
        for (int n = 0; n < 400 && !HasFailure(); ++n) {
            std::string image = whole;
            image_entry changed = entry;
            for (unsigned long k = 1 + random() % 3; k;
                 --k) { // mostly in the head and the first nodes
                const size_t size = random() % 2 ? 300 : most;
                image[tables + random() % size] = char(random() % 3 ? random() % 8 : random());
            }
            if (n % 10 == 0) changed.tables_size -= 16 * (random() % (most / 16));
            changed.hash = image_hash(bytes(image) + tables, size_t(changed.tables_size));
            memcpy(&image[table], &changed, sizeof changed);
            image_tail end = tail;
            end.hash = image_hash(bytes(image) + table, sizeof changed);
            memcpy(&image[image.size() - sizeof end], &end, sizeof end);
            root.store(image);
            const opened cv;
            ASSERT_EQ(cv.result, 1);
            mapped += cv.mapped();
            for (unsigned call = 0; call < 6; ++call) {
                conv_state st = {1, 1, 0, 0, nullptr};
                convert(cv, random_text(random), 200, call % 2 ? &st : nullptr);
            }
        }
        EXPECT_GT(mapped, 10);
        EXPECT_LT(mapped, 390);
    }
}

TEST(Image, SaysWhatItLeavesOut) {
    image_root root(pairs_object(2));
    cv_object bytes = base(1);
    bytes.header += std::string(20000, '\n'); // long enough, but of single bytes
    cv_object hidden = pairs_object(2);
    hidden.fill = byte(cv_plain | 1) + "?"; // for bytes that are no characters
    std::string unsealed = pairs_object(2).str();
    unsealed.replace(unsealed.find("CONTENT"), 7, "CONTENS");
    const struct {
        const char *name;
        std::string object;
        const char *told;
    } rows[] = {
        {"00010003.cvo", bytes.str(),                    "-9 " },
        {"00010003.cvo", hidden.str(),                   "-9 " },
        {"00010003.cvo", unsealed,                       "-9 " },
        {"00010003.cvo", base(2).str(),                  "-9 " }, // short
        {"00010003.cvo", pairs_object(2).str().substr(0, 20000), "-11 "},
        {"00010004.cvo",              "",                               "-8 "                     }, // there is none
        {"../cv9/00010002.cvo",              "",                        "-8 "},
    };
    for (const auto &r : rows) {
        SCOPED_TRACE(r.told);
        if (!r.object.empty()) root.dir.write(std::string("kova/cv9/") + r.name, r.object);
        image_output output;
        const char *const names[] = {r.name, "00010002.cvo"};
        EXPECT_EQ(ko_make_image(root.dir.path.c_str(), names, 2, &output.out), 0);
        EXPECT_EQ(output.told, r.name + std::string(r.told) + "00010002.cvo+0 ");
        EXPECT_EQ(output.bytes, root.made);
    }
    const char *const name = "00010002.cvo";
    const char *const path = root.dir.path.c_str();
    for (int at = 0; at < 5; ++at) {
        image_output output{.fail_at = at};
        output.out.user = &output;
        const int result = ko_make_image(path, &name, 1, &output.out);
        EXPECT_EQ(result, output.puts > at ? KO_EIO : KO_OK);
    }
    each_allocation_fails([&] {
        image_output output;
        const int result = ko_make_image(path, &name, 1, &output.out);
        return !result && output.bytes == root.made;
    });
    image_output output;
    const ko_image_output nowhere = {};
    EXPECT_EQ(ko_make_image(nullptr, &name, 1, &output.out), KO_ENULL);
    EXPECT_EQ(ko_make_image(path, nullptr, 1, &output.out), KO_ENULL);
    EXPECT_EQ(ko_make_image(path, &name, 1, nullptr), KO_ENULL);
    EXPECT_EQ(ko_make_image(path, &name, 1, &nowhere), KO_ENULL);
}

// Real objects, of which KOVA_TEST_ROOT may have an image, too: this one lies beside a copy.
TEST(Image, ConvertsAsTheObjectsOfARoot) {
    const fs::path from = fs::path(env("KOVA_TEST_ROOT")) / "kova" / "cv9";
    if (env("KOVA_TEST_ROOT").empty() || !fs::is_directory(from)) GTEST_SKIP();
    std::mt19937 random(9);
    for (const fs::directory_entry &at : fs::directory_iterator(from)) {
        const std::string name = at.path().filename().string();
        if (name.find_first_not_of("0123456789abcdef") != 8 || at.file_size() < image_object_least)
            continue;
        SCOPED_TRACE(name);
        temp_dir dir;
        const std::string object = slurp(at.path());
        dir.write("kova/cv9/" + name, object);
        image_output output;
        const char *const listed = name.c_str();
        ASSERT_EQ(ko_make_image(dir.path.c_str(), &listed, 1, &output.out), 0);
        if (output.told.ends_with("-9 ")) continue; // of single bytes
        dir.write("kova/image1", output.bytes);
        fs::permissions(fs::path(dir.path) / "kova" / "image1",
                        fs::perms::owner_read | fs::perms::owner_write);
        const cv_record read(object, cv_from::memory);
        env_hooks env;
        env.vars["VANTORDIR"] = dir.path;
        ko_cv_t handle;
        const int result = ko_iconv_open1(&handle, listed);
        const cv_record mapped(handle, result);
        ASSERT_TRUE(mapped.result == 0 && mapped.rec()->by_words) << output.told;
        for (unsigned call = 0; call < 0x10000 && !HasFailure(); call += 13)
            expect_alike(mapped, read, byte(call >> 8) + byte(call) + random_text(random), call,
                         false);
        forget_images();
    }
}
