// Finding the three files a trace needs: the program, the forwarding library that goes ahead of
// the real libQuorvane.so.13, and that real library.
//
// The real library is the one the program would load without the trace. Its dynamic loader
// knows: run with LD_TRACE_LOADED_OBJECTS=1, it maps the program's libraries, prints where each
// one was found ("libQuorvane.so.13 => /path (0x...)") and exits without running the program.
// That answers for a program linked with the library, with its own RUNPATH, LD_LIBRARY_PATH and
// the system's cache taken into account. A program that loads the library only at run time
// (dlopen) is not in that listing: the library is then looked for in LD_LIBRARY_PATH, and
// --library names it otherwise. The loader is asked only about a dynamically linked ELF
// executable; a static one or a script would simply run.
#pragma once

#include <string>
#include <string_view>

#include "childProcess.h"

namespace quorvane::trace {

inline constexpr const char kLibraryName[] = "libQuorvane.so.13";

// The file `command` names: itself when it holds a slash, else the first executable file of
// that name in `searchPath` (PATH's value; null searches nothing). Empty when there is none.
std::string findProgram(const std::string& command, const char* searchPath);

// True for an ELF file that names a program interpreter, the dynamic loader.
bool isDynamicExecutable(const std::string& file);

// The forwarding library, at its place relative to this program's own file; empty when missing.
std::string forwardingLibraryPath();

// Where the loader's listing maps libQuorvane.so.13; empty when the listing does not map it.
std::string libraryInLoaderListing(std::string_view listing);

struct LibraryLookup {
    std::string path;   // absolute, when found
    std::string error;  // why not, otherwise
};

// The real library for `program` (already found with findProgram), run in `environment`.
LibraryLookup findRealLibrary(const std::string& program, const Environment& environment);

}  // namespace quorvane::trace
