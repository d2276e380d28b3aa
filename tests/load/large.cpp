// What takes long or much room: loading again and again, a thousand records at once, strings and
// texts beyond 2^31 and 2^32 units. Built and run by check-load.
#include "support/guarded_block.h"
#include "support/locale_builder.h"

#include "kova_host.h"

#include <chrono>
#include <fstream>
#include <limits.h>
#include <malloc.h>
#include <unistd.h>

namespace {

std::string root() { return env("KOVA_TEST_ROOT"); }
size_t in_use() { return mallinfo2().uordblks; } // bytes of the C library's heap

long resident_kib() {
    std::ifstream in("/proc/self/statm");
    long all = 0, resident = 0;
    in >> all >> resident;
    return resident * (sysconf(_SC_PAGESIZE) / 1024);
}

struct stopwatch {
    std::chrono::steady_clock::time_point start = std::chrono::steady_clock::now();
    double seconds() const {
        return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    }
};

std::vector<std::string> all_specs(const std::string &of) {
    std::vector<std::string> specs;
    const auto take = [](void *user, const ko_locale_entry *entry) {
        static_cast<std::vector<std::string> *>(user)->push_back(entry->spec);
        return entry->error;
    };
    EXPECT_EQ(ko_list_locales(of.c_str(), take, &specs), 0);
    return specs;
}

// A key, a number and a date of a locale, which use what it derives when it is first asked.
std::string answers(ko_lc_t loc) {
    std::string result;
    const ko_tm_t day = {.tm_mday = 7, .tm_mon = 2, .tm_year = 126};
    ko_mchar_t out[4096];
    const auto add = [&](int length) {
        result += std::to_string(length) + ":";
        if (length > 0) result.append(reinterpret_cast<char *>(out), size_t(length));
    };
    static const ko_wchar_t word[] = {'O', 'r', 'd', 'e', 'r', 0}, n[] = {'%', '\'', 'd', 0},
                            d[] = {'%', 'x', 0};
    add(ko_wcsxfrm(loc, out, word, sizeof out));
    ko_wchar_t wide[512];
    for (const int length :
         {ko_wcsfnum(loc, wide, 512, n, 1234567), ko_wcsftime(loc, wide, 512, d, &day)}) {
        result += std::to_string(length) + ":";
        for (int i = 0; i < length; ++i)
            result += std::to_string(wide[i]) + ",";
    }
    char key[512];
    const int64_t made = ko_utf8sxfrm(loc, key, sizeof key, "Order", 5);
    result += std::to_string(made);
    if (made > 0) result.append(key, size_t(made));
    return result;
}

} // namespace

TEST(Loading, TenThousandTimesLeavesNothing) {
    const std::string from = root();
    const std::vector<std::string> specs = all_specs(from);
    ASSERT_FALSE(specs.empty());
    const real_variable data("VANTORDIR", from.c_str());
    size_t loads = 0;
    const auto round = [&](size_t i) {
        const std::string &spec = specs[i % specs.size()];
        owned<ko_lc_unload> loaded;
        EXPECT_EQ(ko_lc_load(&loaded.handle, spec.c_str(), nullptr, nullptr), 0) << spec;
        owned<ko_close_locale> opened;
        EXPECT_EQ(ko_open_locale(&opened.handle, from.c_str(), spec.c_str(), 0), 0) << spec;
        answers(opened);
        owned<ko_cv_unload> cv;
        EXPECT_EQ(ko_open_conversion(&cv.handle, from.c_str(), "8859-1", "utf8", 0), 0);
        owned<ko_lc_unload> lacking;
        EXPECT_NE(ko_lc_load(&lacking.handle, "no_NE.none", nullptr, nullptr), 0);
        loads += 2;
    };
    for (size_t i = 0; i < specs.size(); ++i)
        round(i);
    const size_t before = in_use();
    const long resident = resident_kib();
    const stopwatch time;
    for (size_t i = 0; loads < 10000 + 2 * specs.size(); ++i)
        round(i);
    EXPECT_EQ(in_use(), before);
    EXPECT_LT(resident_kib() - resident, 4096);
    printf("    %zu loads, %.0f s: heap +%zd bytes, resident %ld KiB, %+ld KiB\n",
           loads - 2 * specs.size(), time.seconds(), ssize_t(in_use() - before), resident_kib(),
           resident_kib() - resident);
}

TEST(Records, AThousandAtOnceAnswerAsEachAlone) {
    const std::vector<std::string> specs = all_specs(root());
    ASSERT_FALSE(specs.empty());
    const temp_dir dir;
    std::vector<std::string> alone;
    for (const std::string &spec : specs) {
        owned<ko_close_locale> loc;
        ASSERT_EQ(ko_open_locale(&loc.handle, root().c_str(), spec.c_str(), 0), 0) << spec;
        alone.push_back(answers(loc));
    }
    const size_t before = in_use();
    const long resident = resident_kib();
    std::vector<std::pair<ko_lc_t, size_t>> held;
    const stopwatch time;
    // Roots of other names share no record with each other.
    for (int copy = 0; held.size() < 1000; ++copy) {
        const std::string other = dir.path + "/" + std::to_string(copy);
        std::filesystem::create_directory_symlink(root(), other);
        for (size_t i = 0; i < specs.size(); ++i) {
            held.push_back({nullptr, i});
            ASSERT_EQ(ko_open_locale(&held.back().first, other.c_str(), specs[i].c_str(), 0), 0);
        }
    }
    for (const auto &[loc, i] : held)
        EXPECT_EQ(answers(loc), alone[i]) << specs[i];
    printf("    %zu records of %zu locales, %.0f s: %ld KiB resident, %ld KiB each\n", held.size(),
           specs.size(), time.seconds(), resident_kib(),
           (resident_kib() - resident) / long(held.size()));
    for (size_t step = 7, i = 0, n = held.size(); n; --n, held.pop_back()) { // in mixed order
        i = (i + step) % n;
        ko_close_locale(held[i].first);
        held[i] = held.back();
    }
    held.shrink_to_fit();
    EXPECT_LE(in_use(), before + 64 * 1024); // strings of this test
}

#ifdef __linux__
#include <sys/mman.h>

namespace {

constexpr size_t two_31 = size_t{1} << 31, two_32 = size_t{1} << 32;

// A string of count units, all alike, and a terminator of four bytes; the memory for it is one
// block that is mapped again and again.
struct long_string {
    static constexpr size_t block = size_t{1} << 26;
    unsigned char *start;
    size_t mapped, bytes;
    long_string(size_t count, std::string_view unit) : bytes(count * unit.size()) {
        mapped = (bytes + 4 + block - 1) / block * block;
        const int fd = memfd_create("text", 0);
        EXPECT_EQ(ftruncate(fd, off_t(block)), 0);
        void *const once = mmap(nullptr, block, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
        for (size_t i = 0; i < block; ++i)
            static_cast<char *>(once)[i] = unit[i % unit.size()];
        munmap(once, block);
        void *const place =
            mmap(nullptr, mapped, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
        start = static_cast<unsigned char *>(place);
        for (size_t at = 0; at < mapped; at += block)
            EXPECT_NE(
                mmap(start + at, block, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_FIXED, fd, 0),
                MAP_FAILED);
        close(fd);
        memset(start + bytes, 0, 4);
    }
    ~long_string() { munmap(start, mapped); }
    long_string(const long_string &) = delete;
    const ko_mchar_t *mb() const { return start; }
    const ko_wchar_t *wc() const {
        const void *const at = start;
        return static_cast<const ko_wchar_t *>(at);
    }
    const char *text() const {
        const void *const at = start;
        return static_cast<const char *>(at);
    }
};

// Room that is not there before it is written.
struct long_room {
    size_t size;
    void *p;
    explicit long_room(size_t bytes)
        : size(bytes), p(mmap(nullptr, bytes, PROT_READ | PROT_WRITE,
                              MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0)) {
        EXPECT_NE(p, MAP_FAILED);
    }
    ~long_room() { munmap(p, size); }
    long_room(const long_room &) = delete;
    ko_mchar_t *mb() const { return static_cast<ko_mchar_t *>(p); }
    ko_wchar_t *wc() const { return static_cast<ko_wchar_t *>(p); }
    char *text() const { return static_cast<char *>(p); }
};

void expect(const char *name, ko_lc_t loc, int64_t got, int64_t want, int error) {
    SCOPED_TRACE(name);
    EXPECT_EQ(got, want);
    EXPECT_EQ(*ko_ext_errno(loc), error);
    *ko_ext_errno(loc) = 0;
}

// Every call that counts the units of a string: -1 and KO_ERANGE beyond what an int holds.
void check_counts(const loaded_locale &loc, const char *unit) {
    const size_t len = strlen(unit);
    const long_string s(two_31 + 3, unit);
    ko_mchar_t *const mutable_mb = const_cast<ko_mchar_t *>(s.mb());
    const auto refused = [&](const char *name, int64_t got, int64_t want = -1) {
        expect(name, loc, got, want, KO_ERANGE);
    };
    const auto as_number = [](const void *p) { return p ? 1 : 0; };
    refused("im_mbslen", im_mbslen(loc, s.mb()));
    refused("ko_mbsbytes", ko_mbsbytes(loc, s.mb()), 0);
    refused("ko_mbsbytes_nt", ko_mbsbytes_nt(loc, s.mb()));
    refused("ko_mbsntslen", ko_mbsntslen(loc, s.mb()));
    refused("ko_mbsntsbytes", ko_mbsntsbytes(loc, s.mb()));
    refused("ko_full_mbsspn", ko_full_mbsspn(loc, s.mb(), mb(unit)));
    refused("ko_full_mbscspn", ko_full_mbscspn(loc, s.mb(), mb("b")));
    refused("ko_full_mbsxfrm", ko_full_mbsxfrm(loc, nullptr, s.mb(), 0));
    int count = 7;
    refused("ko_mbstowcslen", as_number(ko_mbstowcslen(loc, s.mb(), &count)), 0);
    EXPECT_EQ(count, 0);
    EXPECT_EQ(ko_mbsntstrunc(loc, mutable_mb), mutable_mb);
    EXPECT_EQ(ko_mbsp(loc, s.mb()), nullptr);
    EXPECT_EQ(ko_full_mbschr(loc, s.mb(), mb("b")), nullptr);
    EXPECT_EQ(ko_full_mbsrchr(loc, s.mb(), mb(unit)), s.mb() + s.bytes - len);
    EXPECT_EQ(ko_full_getmbsi(loc, s.mb(), INT_MAX), s.mb() + len * INT_MAX);
    EXPECT_EQ(ko_full_mbsprev(loc, s.mb(), s.mb() + s.bytes), s.mb() + s.bytes - len);
    EXPECT_EQ(*ko_ext_errno(loc), 0);
    EXPECT_EQ(loc->exp.mbscoll(loc, s.mb(), s.mb()), 0);
    const long_room out(s.bytes + 16);
    refused("ko_tombsupper", ko_tombsupper(loc, out.mb(), s.mb()));
    EXPECT_EQ(loc->exp.mbscoll(loc, s.mb() + len, s.mb()), -1) << "a character less";
    expect("ko_mbsfnum", loc, ko_mbsfnum(loc, out.mb(), 64, mb("%s"), s.mb()), -1, KO_E2BIG);
}

} // namespace

TEST(LongStrings, AreRefusedWhereAnIntCannotCountThem) {
    check_counts(loaded_locale(single_byte_object()), "a");
    check_counts(loaded_locale(double_byte_object(false)), "\x81\x41");
    const loaded_locale loc(single_byte_object());
    const long_string bytes(INT_MAX - 1, "a"), more(INT_MAX, "a");
    EXPECT_EQ(ko_mbsbytes(loc, bytes.mb()), INT_MAX);
    EXPECT_EQ(im_mbslen(loc, more.mb()), INT_MAX);
    EXPECT_EQ(ko_mbswidth(loc, more.mb(), INT_MAX), -1); // its letters are not of class print
    expect("ko_mbsbytes", loc, ko_mbsbytes(loc, more.mb()), 0, KO_ERANGE);
}

TEST(LongStrings, OfWideCharactersToo) {
    const loaded_locale loc(double_byte_object(false));
    const long_string most(size_t{INT_MAX}, std::string_view("A\0", 2)),
        s(two_31, std::string_view("A\0", 2)), half(two_31 / 2, std::string_view("A\0", 2));
    EXPECT_EQ(ko_wcslen(most.wc()), INT_MAX);
    EXPECT_EQ(ko_wcslen(s.wc()), -1);
    EXPECT_EQ(ko_wcsbytes(half.wc() + 2), INT_MAX - 1);
    EXPECT_EQ(ko_wcsbytes(half.wc() + 1), -1);
    const ko_wchar_t a[] = {'A', 0}, b[] = {'B', 0}, format[] = {'%', 'l', 's', 0};
    expect("ko_wcsspn", loc, ko_wcsspn(loc, s.wc(), a), -1, KO_ERANGE);
    expect("ko_wcscspn", loc, ko_wcscspn(loc, s.wc(), b), -1, KO_ERANGE);
    expect("ko_wcsntslen", loc, ko_wcsntslen(loc, s.wc()), -1, KO_ERANGE);
    expect("ko_wcspwidth", loc, ko_wcspwidth(loc, s.wc(), s.wc() + two_31), -1, KO_ERANGE);
    expect("ko_wcsxfrm", loc, ko_wcsxfrm(loc, nullptr, s.wc(), 0), -1, KO_ERANGE);
    EXPECT_EQ(ko_full_wcscoll(loc, s.wc() + 1, s.wc()), -1);
    ko_wchar_t out[64];
    expect("ko_wcsfnum", loc, ko_wcsfnum(loc, out, 64, format, s.wc()), -1, KO_E2BIG);
    EXPECT_EQ(ko_wcsrchr(loc, s.wc(), 'A'), s.wc() + two_31 - 1);
    const long_room copy(2 * two_31 + 16);
    EXPECT_EQ(ko_wcscpy(copy.wc(), s.wc()), copy.wc());
    EXPECT_EQ(ko_wcscmp(copy.wc(), s.wc()), 0);
}

// Texts with a length, beyond 2^32 units: right answers, for their counts have 64 bits.
TEST(LongTexts, AreCountedIn64Bits) {
    owned<ko_close_locale> loc;
    ASSERT_EQ(ko_open_locale(&loc.handle, root().c_str(), "de_DE.unicode", 0), 0);
    const size_t n = two_32 + 5;
    const long_string a(n, "a");
    ko_bad_text bad = {};
    EXPECT_EQ(ko_utf8stowcs(loc, nullptr, 0, a.text(), n, &bad), int64_t(n));
    EXPECT_EQ(ko_utf8supper(loc, nullptr, 0, a.text(), n), int64_t(n));
    EXPECT_EQ(ko_utf8scoll(loc, a.text(), n, a.text(), n), 0);
    EXPECT_EQ(ko_utf8scoll(loc, a.text(), n - 1, a.text(), n), -1);
    EXPECT_EQ(ko_utf8scoll(loc, a.text(), n, a.text(), 5), 1);
    char small[64], of_few[64];
    const int64_t key = ko_utf8sxfrm(loc, small, sizeof small, a.text(), n);
    EXPECT_GT(key, int64_t(n));
    const int64_t longer = ko_utf8sxfrm(loc, nullptr, 0, a.text(), n + 2); // with two U+0000
    EXPECT_GE(longer, key);
    EXPECT_GT(ko_utf8sxfrm(loc, of_few, sizeof of_few, a.text(), 100), 100);
    EXPECT_EQ(memcmp(small, of_few, sizeof small), 0) << "the beginnings of the keys";
    const_cast<char *>(a.text())[n - 1] = '\xFF';
    EXPECT_EQ(ko_utf8stowcs(loc, nullptr, 0, a.text(), n, &bad), -KO_EILSEQ);
    EXPECT_EQ(bad.at, n - 1);
    EXPECT_EQ(bad.made, n - 1);
    EXPECT_EQ(KO_SCOLL_ERROR(ko_utf8scoll(loc, a.text(), n, a.text(), n - 1)), KO_EILSEQ);
}

TEST(LongTexts, OfWideCharactersAreCountedIn64Bits) {
    owned<ko_close_locale> loc;
    ASSERT_EQ(ko_open_locale(&loc.handle, root().c_str(), "de_DE.unicode", 0), 0);
    const size_t n = two_32 + 5;
    const long_string w(n, std::string_view("a\0", 2));
    const void *const units = w.wc();
    const auto *const utf16 = static_cast<const char16_t *>(units);
    ko_bad_text bad = {};
    EXPECT_EQ(ko_wcstoutf8s(loc, nullptr, 0, w.wc(), n, &bad), int64_t(n));
    EXPECT_EQ(ko_utf16scoll(loc, utf16, n, utf16, n - 1), 1);
    EXPECT_GT(ko_utf16sxfrm(loc, nullptr, 0, utf16, n), int64_t(n));
}

// A conversion's counts are ints: the most that they hold is converted, the rest stays.
TEST(LongTexts, AreConvertedInPiecesOfAnInt) {
    owned<ko_cv_unload> cv;
    ASSERT_EQ(ko_open_conversion(&cv.handle, root().c_str(), "8859-1", "utf8", 0), 0);
    const long_string a(two_31 + 5, "\xE4");
    const long_room out(two_32);
    const ko_mchar_t *in = a.mb();
    ko_mchar_t *to = out.mb();
    int left = INT_MAX, room = INT_MAX, sub = 0;
    EXPECT_NE(ko_miconv(cv, &in, &left, &to, &room, &sub), 0);
    EXPECT_EQ(*ko_ext_errno(cv), KO_E2BIG);
    EXPECT_EQ(in - a.mb(), INT_MAX / 2);
    EXPECT_EQ(to - out.mb(), INT_MAX - 1);
    EXPECT_EQ(left, INT_MAX - INT_MAX / 2);
    EXPECT_EQ(room, 1);
    int most = INT_MAX;
    left = INT_MAX;
    in = a.mb();
    conv_state state = {1, 1, 0, 0, nullptr};
    EXPECT_NE(ko_mconvlen(cv, &state, &in, &left, &most, &sub), 0);
    EXPECT_EQ(*ko_ext_errno(cv), KO_E2BIG);
}

#endif
