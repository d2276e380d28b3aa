// The help of a command, laid out for the terminal that shows it.
#pragma once

#include <memory>

namespace CLI {
class App;
class FormatterBase;
} // namespace CLI

namespace kovatool {

// The columns for help: those of COLUMNS, else of the terminal, else 80; at least 40, at most 100.
int help_columns();

// Writes help in so many columns. Footers are broken only in lines that do not begin with a blank.
std::shared_ptr<CLI::FormatterBase> help_layout(int columns);

// Gives a command --version, which prints its name and release, and this layout of help.
void add_help(CLI::App &app);

} // namespace kovatool
