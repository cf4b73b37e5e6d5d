// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include "Options.hpp"

#include <filesystem>
#include <ostream>
#include <system_error>

namespace Example {

Options Options::parse(const std::vector<std::string>& arguments) {
  Options options;
  const auto valueOf = [&arguments](std::size_t& i) {
    if (i + 1 >= arguments.size() || arguments[i + 1].empty() || arguments[i + 1].starts_with("--"))
      throw UsageError(arguments[i] + " needs a name");
    return arguments[++i];
  };
  for (std::size_t i = 0; i < arguments.size(); ++i) {
    const std::string& argument = arguments[i];
    if (argument == "--help" || argument == "-h")
      options.isHelp = true;
    else if (argument == "--analytic")
      options.isAnalytic = true;
    else if (argument == "--pictures")
      options.pictures = valueOf(i);
    else if (argument == "--no-pictures")
      options.pictures.reset();
    else if (argument == "--trace")
      options.trace = valueOf(i);
    else if (argument.empty())
      throw UsageError("FILE needs a name");
    else if (argument.starts_with("-"))
      throw UsageError("there is no option " + argument);
    else if (options.file)
      throw UsageError("there is one FILE at most");
    else
      options.file = argument;
  }
  if (options.file && options.isAnalytic) throw UsageError("either FILE or --analytic");
  if (options.file) options.checkTrace(*options.file);
  return options;
}

void Options::checkTrace(const std::string& data) const {
  std::error_code none;  // files that are not there are not the same
  if (trace && std::filesystem::equivalent(data, *trace, none))
    throw UsageError("the trace would replace the data: " + *trace);
}

void printUsage(std::ostream& out) {
  out << "usage: ocean [FILE | --analytic] [--pictures DIR | --no-pictures] [--trace FILE] [--help]\n"
         "  FILE            a NetCDF file with a variable TEMP over time, depth, latitude and longitude;\n"
         "                  else the ocean atlas of Debian's package ferret-datasets if it is installed\n"
         "  --analytic      an embedded ocean, computed on demand; also if there is no file at all\n"
         "  --pictures DIR  where to write the pictures (ocean-pictures); gnuplot draws them\n"
         "  --no-pictures   draws none\n"
         "  --trace FILE    writes what the cache does as a trace for ui.perfetto.dev\n"
         "  --help          this text\n"
         "Exit code: 0 if all that is shown holds, 1 if not, 2 for a wrong command line or an unreadable\n"
         "file, 130 after an interrupt (Ctrl-C), which ends the work in order; a second one ends it at once.\n";
}

}  // namespace Example
