// The command kova with words from anywhere, in a folder of its own: it ends, with one of its exit
// statuses; a failure says why, each of its lines printable; help and descriptions succeed; and
// what is said to be JSON is. The input is the words, each on a line, then a form feed and what is
// read from standard input, which the file "x" holds, too.
#include "fuzz_host.h"

#include <nlohmann/json.hpp>

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#define main kova_main
#include "../tools/kova/kova.cpp"
#undef main

namespace {

// A stream of the C library over memory, in place of a standard one.
struct standard_stream {
    FILE *&place, *const before = place;
    FILE *const own;
    standard_stream(FILE *&of, const char *mode)
        : place(of), own(fdopen(memfd_create("stream", 0), mode)) {
        setvbuf(own, nullptr, _IOFBF, 65536);
    }
    void start(std::string_view text) {
        clearerr(own);
        check(!ftruncate(fileno(own), 0) &&
                  pwrite(fileno(own), text.data(), text.size(), 0) == ssize_t(text.size()) &&
                  !fseek(own, 0, SEEK_SET),
              "a stream can be filled");
        place = own;
    }
    std::string end() {
        fflush(own);
        place = before;
        std::string text(size_t(lseek(fileno(own), 0, SEEK_END)), 0);
        text.resize(size_t(pread(fileno(own), text.data(), text.size(), 0)));
        return text;
    }
};

struct place {
    temp_dir dir;
    const int from = open(".", O_RDONLY), to = open(dir.path.c_str(), O_RDONLY);
    place() {
        unsetenv("KOVALOG");
        setenv("HOME", dir.path.c_str(), 1);
        if (!data_root.empty())
            setenv("VANTORDIR", std::filesystem::absolute(data_root).c_str(), 1);
        setenv("LC_ALL", "C.UTF-8", 1);
    }
};

// Words that would name a file elsewhere, ask for much or change with time are not tried.
bool is_harmless(const std::vector<std::string> &words) {
    for (const std::string &word : words) {
        if (word.find('/') != word.npos && word[0] != '%' && word[0] != '+') return false;
        if (word.find("..") != word.npos || word.find('\\') != word.npos) return false;
        size_t digits = 0;
        for (const char c : word)
            if ((digits = isdigit(uint8_t(c)) ? digits + 1 : 0) > 5 && words.size() > 2)
                return false;
    }
    return words.size() < 40;
}

bool is_json(const std::string &text) {
    for (size_t at = 0; at < text.size();) { // whole, or line by line
        const size_t end = std::min(text.find('\n', at), text.size() - 1) + 1;
        if (!nlohmann::json::accept(text.substr(at, end - at)))
            return at == 0 && nlohmann::json::accept(text);
        at = end;
    }
    return true;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    static const place here;
    static standard_stream in(stdin, "r"), out(stdout, "w"), err(stderr, "w");
    const std::string all(data, data + size);
    const size_t divider = std::min(all.find('\f'), all.size());
    const std::string text = all.substr(std::min(divider + 1, all.size()));
    std::vector<std::string> words = {"kova"};
    for (size_t at = 0; at < divider;) {
        const size_t end = std::min(all.find('\n', at), divider);
        words.push_back(all.substr(at, end - at).c_str());
        at = end + 1;
    }
    if (!is_harmless(words)) return 0;
    std::vector<char *> arguments;
    for (std::string &word : words)
        arguments.push_back(word.data());
    arguments.push_back(nullptr);
    check(!fchdir(here.to), "there is a folder");
    FILE *const x = fopen("x", "w");
    fwrite(text.data(), 1, text.size(), x);
    fclose(x);
    in.start(text), out.start(""), err.start("");
    const int status = kova_main(int(words.size()), arguments.data());
    in.end();
    check(!fchdir(here.from), "there was a folder");
    const std::string written = out.end(), told = err.end();
    check(status >= 0 && status <= 4, "there are five exit statuses");
    check(!status || !told.empty() || !written.empty(), "a failure says why"); // in JSON, or there
    for (const char c : told)
        check(uint8_t(c) >= ' ' || c == '\n', "messages are printable");
    if (std::find(words.begin(), words.end(), "--json") != words.end() && !status)
        check(is_json(written), "what is said to be JSON is");
    return 0;
}
