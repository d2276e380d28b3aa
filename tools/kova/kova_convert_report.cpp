// What kova convert tells of a conversion: counts and places on standard error, and one JSON
// object.
#include "kova/kova_convert_job.h"

#include <cstdio>

#include <nlohmann/json.hpp>

#include "common/tool_text.h"

namespace kovacli {

void note(finding &found, const std::string &where) {
    ++found.count;
    if (found.first.size() < shown_places) found.first.push_back(where);
}

// Is this kind of finding one that only happens where an option asks for it?
static bool is_asked_for(size_t kind) { return kind >= transliterated; }

static void tell_report(const convert_job &job) {
    if (job.way.legs == 0)
        kovatool::tell("kova", "the same code set: bytes are copied and not examined");
    for (size_t kind = 0; kind < job.found.size(); ++kind) {
        const finding &found = job.found[kind];
        if (found.count == 0 && is_asked_for(kind)) continue;
        std::fprintf(stderr, "kova: %llu %s %s\n", static_cast<unsigned long long>(found.count),
                     found.count == 1 ? "character" : "characters", found.name);
        for (const std::string &where : found.first)
            kovatool::tell("kova", "  " + where);
        if (found.count > found.first.size())
            std::fprintf(stderr, "kova:   and %llu more\n",
                         static_cast<unsigned long long>(found.count - found.first.size()));
    }
}

static std::string what_happened(const convert_job &job, size_t kind) {
    const finding &found = job.found[kind];
    if (kind == one_way || is_asked_for(kind)) return found.name;
    if (job.options->accept) return "substituted";
    return std::string(job.options->replace ? "replaced" : "skipped") + " (" + found.name + ")";
}

void tell_findings(const convert_job &job) {
    if (job.options->report) return tell_report(job);
    for (size_t kind = 0; kind < job.found.size(); ++kind) {
        const finding &found = job.found[kind];
        const bool wanted = (kind != one_way && kind != unescaped) || job.options->verbose;
        if (found.count == 0 || !wanted) continue;
        std::fprintf(stderr, "kova: %llu %s %s, the first at %s\n",
                     static_cast<unsigned long long>(found.count),
                     found.count == 1 ? "character" : "characters",
                     what_happened(job, kind).c_str(), kovatool::printable(found.first[0]).c_str());
    }
}

// ---- JSON ----

using json = nlohmann::ordered_json;

static json stop_json(const stop_report &stop) {
    json object = {
        {"kind",        stop.kind        },
        {"byte_offset", stop.place.offset},
        {"line",        stop.place.line  },
        {"column",      stop.place.column},
        {"bytes",       stop.bytes       }
    };
    if (stop.code != no_code_point) object["character"] = code_point_text(stop.code);
    object["resume_offset"] = stop.place.offset;
    object["next_offset"] = stop.place.offset + stop.len;
    object["state"] = stop.state;
    object["next_state"] = stop.next_state;
    object["message"] = stop.message;
    return object;
}

static json input_json(const convert_job &job, const input_report &one) {
    static constexpr const char *names[] = {"substituted", "one_way",  "unmapped",
                                            "invalid",     "cut_off",  "transliterated",
                                            "escaped",     "unescaped"};
    static_assert(std::size(names) == std::tuple_size_v<findings>);
    json object = {
        {"input",      one.input        },
        {"output",     one.output       },
        {"from",       job.way.from.name},
        {"to",         job.way.to.name  },
        {"bytes_in",   one.bytes_in     },
        {"bytes_out",  one.bytes_out    },
        {"characters", one.characters   }
    };
    for (size_t kind = 0; kind < one.counts.size(); ++kind)
        object[names[kind]] = one.counts[kind];
    if (one.stop)
        object["error"] = stop_json(*one.stop);
    else if (!one.failure.empty())
        object["error"] = json{
            {"kind",    "other"    },
            {"message", one.failure}
        };
    else
        object["error"] = nullptr;
    return object;
}

void write_report(const convert_job &job, const std::vector<input_report> &inputs, int status) {
    json all = {
        {"from",     job.way.from.name},
        {"to",       job.way.to.name  },
        {"examined", job.way.legs > 0 }, // not copied from a code set to itself
        {"status",   status           },
        {"files",    json::array()    }
    };
    for (const input_report &one : inputs)
        all["files"].push_back(input_json(job, one));
    const std::string text = all.dump(2, ' ', false, json::error_handler_t::replace) + "\n";
    output out;
    write(out, text);
    finish(out);
}

} // namespace kovacli
