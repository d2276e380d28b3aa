// Faults of the system in the commands, by number: memory, files, disks and what the kernel says of
// them. A command that fails says so, and leaves files as they were; one that succeeds has given
// what it gives without a fault. tests/faults/fault_calls.cpp injects them.
#include "faults/fault_plan.h"
#include "support/rows.h"
#include "tools/command_run.h"

#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>

namespace fs = std::filesystem;

namespace {

using file_tree = std::map<std::string, std::string>; // of folders the names, with a slash

file_tree tree_of(const fs::path &dir) {
    file_tree tree;
    for (const auto &entry : fs::recursive_directory_iterator(dir)) {
        const std::string name = fs::relative(entry.path(), dir).string();
        if (entry.is_directory())
            tree[name + "/"];
        else // what is said of a run has its times
            tree[name] = entry.path().stem() == "pack" ? "" : slurp(entry.path());
    }
    return tree;
}

bool is_of(const file_tree &tree, const std::string &name, const std::string &bytes) {
    const auto found = tree.find(name);
    return found != tree.end() && found->second == bytes;
}

void plant(const fs::path &dir, const file_tree &tree) {
    for (const auto &entry : fs::directory_iterator(dir))
        fs::remove_all(entry.path());
    for (const auto &[name, bytes] : tree)
        if (name.ends_with('/'))
            fs::create_directories(dir / name);
        else
            spit(dir / name, bytes);
}

struct fault {
    const char *name;
    fault_call kind;
    int error; // 0: half of what was asked for, which is no failure
    bool stays;
};
constexpr fault faults[] = {
    {"no memory once",        call_memory, ENOMEM, false},
    {"no memory from then",   call_memory, ENOMEM, true },
    {"no descriptor",         call_open,   EMFILE, false},
    {"cannot open",           call_open,   EIO,    false},
    {"cannot read",           call_read,   EIO,    false},
    {"cannot read from then", call_read,   EIO,    true },
    {"read interrupted",      call_read,   EINTR,  false},
    {"short read",            call_read,   0,      false},
    {"short reads",           call_read,   0,      true },
    {"cannot write",          call_write,  EIO,    false},
    {"disk full",             call_write,  ENOSPC, true },
    {"write interrupted",     call_write,  EINTR,  false},
    {"short write",           call_write,  0,      false},
    {"short writes",          call_write,  0,      true },
    {"cannot close",          call_close,  EIO,    false},
    {"cannot sync",           call_sync,   EIO,    false},
    {"cannot rename",         call_name,   EIO,    false},
    {"no room for a name",    call_name,   ENOSPC, true },
    {"cannot ask",            call_ask,    EIO,    false},
};

struct run_result {
    int status = -1; // of waitpid
    std::string out, err;
    file_tree files;
    int exit() const { return WIFEXITED(status) ? WEXITSTATUS(status) : -1; }
};

// A file in memory, for a descriptor of a run.
struct memory_file {
    int fd = memfd_create("run", 0);
    ~memory_file() { close(fd); }
    std::string bytes() const {
        std::string text(size_t(lseek(fd, 0, SEEK_END)), '\0');
        const ssize_t got = pread(fd, text.data(), text.size(), 0);
        return got == ssize_t(text.size()) ? text : "?";
    }
    void set(const std::string &text) const {
        EXPECT_EQ(ftruncate(fd, 0), 0);
        EXPECT_EQ(pwrite(fd, text.data(), text.size(), 0), ssize_t(text.size()));
        lseek(fd, 0, SEEK_SET);
    }
};

// A process with a command line that runs it as often as it is asked to.
struct served_command {
    memory_file shared, standard[3];
    fault_plan *plan = nullptr;
    int request[2] = {}, answer[2] = {};
    pid_t server = -1;

    served_command(const std::vector<std::string> &words,
                   const std::map<std::string, std::string> &environment, const fs::path &dir) {
        EXPECT_EQ(ftruncate(shared.fd, sizeof(fault_plan)), 0);
        plan = static_cast<fault_plan *>(
            mmap(nullptr, sizeof(fault_plan), PROT_READ | PROT_WRITE, MAP_SHARED, shared.fd, 0));
        EXPECT_EQ(pipe(request) + pipe(answer), 0);
        std::string fds = "KOVA_FAULTS=" + std::to_string(shared.fd);
        for (const int fd : {request[0], answer[1], standard[0].fd, standard[1].fd, standard[2].fd})
            fds += "," + std::to_string(fd);
        std::vector<std::string> variables = {fds, "LD_PRELOAD=" + env("KOVA_FAULTS_LIBRARY")};
        for (const auto &[name, value] : environment)
            variables.push_back(name + "=" + value);
        const auto pointers = [](const std::vector<std::string> &texts) {
            std::vector<char *> result;
            for (const std::string &text : texts)
                result.push_back(const_cast<char *>(text.c_str()));
            result.push_back(nullptr);
            return result;
        };
        const std::string program = env("KOVA_BIN_DIR") + "/" + words[0];
        const auto arguments = pointers(words), settings = pointers(variables);
        server = fork();
        if (server != 0) {
            close(request[0]), close(answer[1]);
            return;
        }
        close(request[1]), close(answer[0]);
        const int null = open("/dev/null", O_RDWR);
        for (int fd = 0; fd < 3; ++fd)
            dup2(null, fd);
        if (chdir(dir.c_str()) == 0) execve(program.c_str(), arguments.data(), settings.data());
        _exit(127);
    }
    ~served_command() {
        close(request[1]), close(answer[0]);
        int status;
        waitpid(server, &status, 0);
        munmap(plan, sizeof(fault_plan));
    }
    // The status -1 where runs are not served.
    run_result run(const std::string &in) const {
        run_result result;
        const std::string texts[] = {in, "", ""};
        for (int i = 0; i < 3; ++i)
            standard[i].set(texts[i]);
        for (auto &count : plan->calls)
            count = 0;
        plan->injected = plan->traced = 0;
        if (write(request[1], "x", 1) != 1) return result;
        if (read(answer[0], &result.status, sizeof result.status) != sizeof result.status)
            result.status = -1;
        result.out = standard[1].bytes();
        result.err = standard[2].bytes();
        return result;
    }
};

struct command_row {
    std::vector<std::string> words;
    int64_t share; // how much less of it is tried: its runs are long
};

// The calls of a kind that fail, of so many: all or some of them.
std::vector<int64_t> some_calls(int64_t count, int64_t share) {
    const std::string said = env("KOVA_FAULTS_MOST");
    const int64_t most = std::max<int64_t>((said.empty() ? 8 : whole(said)) / share, 2);
    std::vector<int64_t> chosen;
    for (int64_t i = 0; i < std::min(count, most); ++i)
        chosen.push_back(count <= most ? i : i * (count - 1) / (most - 1));
    return chosen;
}

struct CommandFaults : data_test {
    file_tree before = {
        {"in",      "b a\nC\n\xC3\xA4\n"                                                   },
        {"two",     "a\nb\n"                                                               },
        {"out",     "old\n"                                                                },
        {"numbers", "1\n2\n"                                                               },
        {"layout",  "a 0 3 text\nb 3 3 hex\n"                                              },
        {"records", "\xC1\xC2\xC3"
                    "abc"                                               },
        {"charmap", "<code_set_name> ISO-8859-1\n<escape_char> /\nCHARMAP\n"
                    "<U0000>..<U007F> /x00\n<U00C4> /xc4\nEND CHARMAP\n"},
        {"tmp/",    ""                                                                     },
        {"made/",   ""                                                                     },
    };
    fs::path work = dir / "work";
    std::map<std::string, int64_t> by_kind;

    void SetUp() override {
        data_test::SetUp();
        fs::create_directory(work);
        environment["TMPDIR"] = (work / "tmp").string();
        signal(SIGPIPE, SIG_IGN); // of a command that does not serve runs
        environment["TZ"] = "Europe/Berlin";
        std::string source = "escape_char /\nLC_COLLATE\norder_start forward\n<U0061>\n<U0062>\n"
                             "order_end\nEND LC_COLLATE\n";
        for (const std::string name :
             {"LC_CTYPE", "LC_NUMERIC", "LC_MONETARY", "LC_TIME", "LC_MESSAGES"})
            source += name + "\ncopy \"POSIX\"\nEND " + name + "\n";
        before["xx_YY"] = source;
        plant(work, before);
        ASSERT_EQ(shell("cd work && kovac registry -o made && kovac locale -i xx_YY -f charmap -o "
                        "made && kovac locale -i xx_YY -f unicode -o made && kovac convert -f "
                        "charmap -t utf8 -o made")
                      .status,
                  0)
            << slurp(dir / ".err");
        before = tree_of(work);
    }
    void TearDown() override {
        for (const auto &[name, count] : by_kind)
            printf("%8lld  %s\n", static_cast<long long>(count), name.c_str());
    }

    // What is wrong with a run, or "".
    std::string wrong(const fault &f, const run_result &got, const run_result &want) const {
        if (!WIFEXITED(got.status))
            return "ended by signal " + std::to_string(WTERMSIG(got.status));
        if (got.exit() == want.exit()) {
            if (got.out != want.out) return "another answer: " + got.out.substr(0, 200);
            if (got.files != want.files) return "other files";
            return got.err == want.err ? "" : "another message";
        }
        if (f.error == 0) return "failed";
        if (got.exit() < 1 || got.exit() > 4) return "a strange status";
        const bool tells = got.err.starts_with("kova") && got.err.ends_with('\n');
        if (!tells && (!got.err.empty() || got.out == want.out)) return "no message";
        for (const auto &[name, bytes] : got.files)
            if (!is_of(before, name, bytes) && !is_of(want.files, name, bytes))
                return "a file left: " + name;
        for (const auto &[name, bytes] : before)
            if (!got.files.contains(name)) return "a file lost: " + name;
        return "";
    }

    // What a run did to files in an order that a loss of power could turn into half a file: bytes
    // are on disk before a name leads to them, and so are names in the end. "" if nothing.
    static std::string misordered(const fault_plan &plan) {
        const auto base = [](const std::string &path) { return path.substr(path.rfind('/') + 1); };
        std::set<std::string> unsynced, lacking; // files with bytes, and directories with names
        EXPECT_LE(plan.traced, std::size(plan.trace));
        for (uint32_t i = 0; i < plan.traced; ++i) {
            const fault_trace &line = plan.trace[i];
            const std::string path = line.path, to = line.to;
            const size_t slash = to.rfind('/');
            if (line.call == 'w') unsynced.insert(base(path));
            if (line.call == 's') unsynced.erase(base(path)), lacking.erase(base(path));
            if (line.call != 'r' && line.call != 'l') continue;
            if (unsynced.contains(base(path)))
                return path + " gets a name before its bytes are safe";
            if (line.call == 'r')
                lacking.insert(slash == to.npos ? "work" : base(to.substr(0, slash)));
        }
        return lacking.empty() ? "" : "the names of " + *lacking.begin() + " are not safe";
    }

    // The process is killed in place of each call that can change files; what is left is repaired
    // by the next run.
    void kill_row(const command_row &row, const served_command &served, const run_result &want,
                  const int64_t (&calls)[call_kinds]) {
        for (const fault_call kind : {call_open, call_write, call_close, call_sync, call_name})
            for (const int64_t n : some_calls(calls[kind], row.share)) {
                SCOPED_TRACE("killed at call " + std::to_string(n) + " of kind " +
                             std::to_string(kind));
                plant(work, before);
                run_plan(served, {"killed", kind, 0, false}, n, true);
                for (const auto &[name, bytes] : tree_of(work)) {
                    EXPECT_TRUE(is_of(before, name, bytes) || is_of(want.files, name, bytes) ||
                                name.find(".kova-") != name.npos)
                        << name;
                }
                served.plan->kind = -1;
                run_result again = served.run(before.at("in"));
                EXPECT_EQ(again.exit(), want.exit()) << again.err;
                EXPECT_TRUE(tree_of(work) == want.files) << "another result after a kill";
            }
    }
    run_result run_plan(const served_command &served, const fault &f, int64_t n,
                        bool kills = false) {
        served.plan->kind = f.kind;
        served.plan->error = f.error;
        served.plan->stays = f.stays;
        served.plan->at = n;
        served.plan->kill = kills;
        run_result got = served.run(before.at("in"));
        got.files = tree_of(work);
        by_kind[f.name] += served.plan->injected > 0;
        served.plan->kill = 0;
        return got;
    }

    void run_row(const command_row &row) {
        std::string line;
        for (const std::string &word : row.words)
            line += word + " ";
        SCOPED_TRACE(line);
        plant(work, before);
        const served_command served(row.words, environment, work);
        served.plan->kind = -1;
        run_result want = served.run(before.at("in"));
        want.files = tree_of(work);
        if (want.exit() == 121 || want.status == -1)
            GTEST_SKIP() << "this system does not let calls be counted";
        ASSERT_EQ(want.exit(), 0) << want.status << want.err;
        EXPECT_EQ(misordered(*served.plan), "");
        int64_t calls[call_kinds];
        std::copy(std::begin(served.plan->calls), std::end(served.plan->calls), calls);
        for (const fault &f : faults) {
            int64_t bad = 0;
            for (const int64_t n : some_calls(calls[f.kind], row.share)) {
                plant(work, before);
                const run_result got = run_plan(served, f, n);
                const std::string why = served.plan->injected ? wrong(f, got, want) : "";
                if (!why.empty() && bad++ == 0)
                    ADD_FAILURE() << f.name << ", call " << n << " of " << calls[f.kind] << ": "
                                  << why << "\nstatus " << got.exit() << " " << got.err;
            }
            EXPECT_LE(bad, 1) << f.name;
        }
        if (want.files != before) kill_row(row, served, want, calls);
    }
    // Rows of words; "de" and "uni" are locales, and a number before a row its share.
    void run_rows(const char *rows) {
        for (std::vector<std::string> words : table(rows)) {
            const int64_t share = words[0][0] <= '9' ? whole(words[0]) : 1;
            if (share > 1) words.erase(words.begin());
            for (std::string &word : words)
                word = word == "uni" ? "de_DE.unicode" : word == "de" ? "de_DE.ISO-8859-1" : word;
            run_row({words, share});
        }
    }
};

} // namespace

TEST_F(CommandFaults, InTexts) {
    run_rows("kova sort -l de --utf8; kova sort -l uni -o out in two; kova sort -l de -c two; "
             "kova sort -l de --utf8 -u -r -S 1K -T tmp -o out in two in; "
             "kova sort -l de -m -k 1,1 -o out two two; kova compare uni a b; "
             "kova key de --utf8; kova upper de --utf8 -f in; kova lower uni; "
             "kova classify de aB; kova classify de --utf8 --count in; "
             "kova width de --utf8 in; kova trim de --utf8 -o out in; kova count de --utf8 in");
}

TEST_F(CommandFaults, InLinesOfText) {
    run_rows("kova text fold de --utf8 -w 2 -o out in; kova text wrap de --utf8 -w 3 -o out in; "
             "kova text expand de --utf8 -o out in; kova text unexpand de --utf8 -o out in; "
             "kova text table de --utf8 -o out in");
}

TEST_F(CommandFaults, InValues) {
    run_rows("kova number de %f 1234567.5; kova number de %f --parse 1234567,5; "
             "kova number de %f -f numbers; kova money de %n 1234567.5; "
             "kova date de --at 2024-05-06; kova parse-date de %d.%m.%Y 06.05.2024; "
             "kova date uni --at 2024-05-06T07:08:09 --zone Asia/Tokyo; "
             "kova cal de 5 2024; kova cal -l de 5 2024 --html -o out");
}

TEST_F(CommandFaults, InLocales) {
    run_rows("kova info de; kova info de --html -o out; kova locale de -k LC_TIME; "
             "4 kova locales --language de_DE; kova order de; kova order de --html -o out; "
             "kova verify de two; kova verify made; 6 kova diff made made xx_YY");
}

TEST_F(CommandFaults, InCodeSets) {
    run_rows("kova convert -f utf8 -t ISO-8859-1 -o out in; "
             "kova convert -f utf8 -t ISO-8859-1 --output-dir tmp in two; "
             "kova convert -f utf8 -t IBM-37 --records lines --to-records vb -o out in; "
             "4 kova convert --list; 4 kova convert --detect in; "
             "kova records -l layout --records fb:6 -f 037 -o out records; "
             "kova chart ISO-8859-1; kova chart ISO-8859-1 --html -o out; "
             "kova symbols ISO-8859-1 two -o out");
}

TEST_F(CommandFaults, InTheCompiler) {
    run_rows("kovac registry -o made --add NEW=60000; kovac charmap charmap -o made; "
             "kovac convert -f charmap -t utf8 --both --from-name x -o made; kovac image made; "
             "2 kovac translit -o made; 4 kovac locale -i xx_YY -f charmap -o made --prove; "
             "2 kovac pack -o made --jobs 1 --no-prove --only charmap~ISO-8859-1");
}
