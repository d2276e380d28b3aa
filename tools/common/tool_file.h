// How both commands write a file: whole or not at all, under its name only when every byte of it is
// with the disk. Paths are UTF-8 on Windows, bytes elsewhere.
#pragma once

#include <cstdio>
#include <string>

namespace kovatool {

// Writing into a closed pipe, or beyond the limit on the size of files, becomes an ordinary error.
void prepare_signals();

// What becomes of a symbolic link in the place of the file.
enum class link_in_place {
    followed, // what it leads to is replaced, as a file that the user names
    replaced  // the link itself is, as an object of a data root
};

// A file on its way. It is written beside its target under a name that nobody can foresee, and
// renamed over it. Where links are followed, a target that is no regular file (a device, a pipe,
// /dev/stdout) is written directly. A program that ends early, also by a signal, leaves the target
// as it was and nothing beside it; what a killed one left there goes when the target is next
// written.
struct replacement {
    std::FILE *stream = nullptr;
    std::string target;
    std::string beside; // "" when the target is written directly
};

// False with errno set.
bool open_replacement(const std::string &path, link_in_place link, replacement &file);

// Hands every byte to the disk; the file stays open beside its target. False with errno set.
bool sync_replacement(replacement &file);

// Syncs and renames. The target's permissions stay without set-user-id and its kin. False with
// errno set, and the file beside removed.
bool commit_replacement(replacement &file);

// Closes and removes the file beside; nothing after a commit. errno stays.
void discard_replacement(replacement &file);

// Gives a file a second name in one step, or copies it where the file system has no such names.
// False with errno set.
bool link_in_one_step(const std::string &existing, const std::string &path);

} // namespace kovatool
