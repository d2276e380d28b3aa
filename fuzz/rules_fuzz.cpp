// Code sets that convert by rule, those of the data root, and ways between these: pieces and rooms
// of any length give what one call gives, neither the text nor the room is left, measuring counts
// what is made, and what converts comes back. The input begins with the code set and the direction,
// and a seed of the lengths.
#include "fuzz_host.h"
#include "host/host_rules.h"

namespace {
constexpr const char *names[] = {
    "iso-2022-jp", "iso-2022-jp-1", "iso-2022-jp-2", "iso-2022-kr", "iso-2022-cn-ext",
    "hz",          "utf-7",         "imap",          "gb18030",     "sjis-2004",
    "hkscs",       "ibm1399",       "iso-2022-jp-3", "cp50221"};
constexpr size_t sets = sizeof names / sizeof *names;

// The numbers of code sets that a root converts to UTF-8 and back.
std::vector<std::string> sets_of_root() {
    std::vector<std::string> numbers;
    const std::filesystem::path folder = data_root + "/kova/cv9";
    if (data_root.empty()) return numbers;
    for (const auto &entry : std::filesystem::directory_iterator(folder)) {
        const std::string name = entry.path().filename().string();
        if (name.size() == 12 && name.ends_with("e01c.cvo") &&
            exists(folder / ("e01c" + name.substr(0, 4) + ".cvo")))
            numbers.push_back(std::to_string(std::stoi(name.substr(0, 4), nullptr, 16)));
    }
    std::sort(numbers.begin(), numbers.end());
    return numbers;
}

// Each pair is opened when it is first used: to UTF-8, or to another code set, and back.
struct conversions {
    using pair = std::array<ko_cv_t, 2>;
    rules_root small;
    const std::vector<std::string> numbers = sets_of_root();
    std::vector<pair> all = std::vector<pair>(128);
    bool is_exact(size_t i) const { return i % all.size() < sets || numbers.empty(); }
    const pair &operator[](size_t i) {
        i %= numbers.empty() ? sets : all.size();
        const size_t n = numbers.size(), at = i - sets;
        const std::string root = i < sets ? small.path : data_root;
        const std::string one = i < sets ? names[i] : numbers[at % n],
                          two = i < sets || at < n ? "utf8" : numbers[at * 7 % n];
        for (const bool back : {false, true}) {
            if (all[i][back]) continue;
            const int error =
                ko_open_conversion(&all[i][back], root.c_str(), (back ? two : one).c_str(),
                                   (back ? one : two).c_str(), KO_CONVERT_KEEP_MARK);
            check(!error || (at >= n && one == two), "the conversions can be opened");
        }
        return all[i];
    }
    ~conversions() {
        for (const pair &both : all)
            for (const ko_cv_t cd : both)
                ko_cv_unload(cd);
    }
};
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    static conversions opened;
    if (size < 2) return 0;
    const auto &pair = opened[data[0] / 2];
    if (!pair[0]) return 0; // a code set to itself
    const long before = memory.live;
    const bool back = data[0] % 2;
    const std::string text(data + 2, data + size);
    std::minstd_rand random(data[1] + 1u);
    const outcome made = convert_whole(pair[back], text);
    check(made.error != KO_E2BIG, "the computed size suffices");
    check(convert_splits(pair[back], text, random) == made, "pieces give what one call gives");
    const outcome measured = convert_piece(pair[back], nullptr, text, 1 << 20, true);
    check(measured == outcome{std::to_string(made.made.size()), made.taken, made.error},
          "measuring counts what is made");
    if (back && !made.error) {
        const outcome again = convert_whole(pair[0], made.made);
        if (opened.is_exact(data[0] / 2))
            check(!again.error && again.made == text, "what converts comes back");
        else if (!again.error) // several characters may be one
            check(convert_whole(pair[1], again.made) == outcome{made.made, again.made.size(), 0},
                  "what comes back converts alike");
    }
    // A state that no text leads to does no harm.
    conv_state st = {0, data[1] & 1, int(data[1] * 0x10931u), int(data[1] * 0x10931u), nullptr};
    convert_piece(pair[back], &st, text, data[1]);
    check(memory.live == before, "nothing is left");
    return 0;
}
