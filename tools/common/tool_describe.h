// A command's options as data, from which its manual pages and completions are made.
#pragma once

namespace CLI {
class App;
}

namespace kovatool {

// Adds --describe, which lists the command's subcommands and options, one a line, and ends it. To
// be called when everything else was added.
void add_describe(CLI::App &app);

} // namespace kovatool
