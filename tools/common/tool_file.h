// How both commands write a file: completely or not at all, and under its name only once every byte
// is on disk. Paths are UTF-8 on Windows, bytes elsewhere.
#pragma once

#include <cstdio>
#include <string>

namespace kovatool {

// Makes writing into a closed pipe, or beyond the limit on file size, an ordinary error.
void prepare_signals();

// Sixteen hexadecimal digits that nobody can foresee, for the name of a new file.
std::string random_digits();

// What happens to a symbolic link under the name of the file.
enum class link_in_place {
    followed, // its target is replaced: for files that the user names
    replaced  // the link itself is: for objects of a data root
};

// A file being replaced. The new one is written beside the target under an unpredictable name, then
// renamed over it. Where links are followed, a target that is not a regular file (a device, a pipe,
// /dev/stdout) is written directly. A program that ends early, even by a signal, leaves the target
// as it was and nothing beside it; what a killed program left there is removed when the target is
// next written.
struct replacement {
    std::FILE *stream = nullptr;
    std::string target;
    std::string beside; // "" if the target is written directly
};

// False with errno set.
bool open_replacement(const std::string &path, link_in_place link, replacement &file);

// Syncs every byte to disk; the file stays open beside its target. False with errno set.
bool sync_replacement(replacement &file);

// Syncs and renames. The target keeps its permissions except set-user-id and its kin. False with
// errno set and the file beside it removed.
bool commit_replacement(replacement &file);

// Closes and removes the file beside the target; does nothing after a commit. errno stays.
void discard_replacement(replacement &file);

// Removes the file beside a target that is being replaced: for programs that end at once.
void remove_unfinished();

// Gives a file a second name in one step, or copies it where the file system has no hard links.
// False with errno set.
bool link_in_one_step(const std::string &existing, const std::string &path);

} // namespace kovatool
