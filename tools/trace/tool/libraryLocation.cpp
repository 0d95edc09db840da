#include "libraryLocation.h"

#include <elf.h>
#include <limits.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <vector>

#ifndef QUORVANE_TRACE_FORWARDER
#error "QUORVANE_TRACE_FORWARDER: the forwarding library's path relative to quorvane-trace's folder"
#endif

namespace quorvane::trace {

namespace {

namespace fs = std::filesystem;

bool isExecutableFile(const fs::path& file) {
    std::error_code ignored;
    return fs::is_regular_file(file, ignored) && access(file.c_str(), X_OK) == 0;
}

std::vector<std::string> splitList(const char* list) {
    std::vector<std::string> parts;
    std::istringstream words(list == nullptr ? "" : list);
    for (std::string part; std::getline(words, part, ':');) parts.push_back(part.empty() ? "." : part);
    return parts;
}

// Reads the ELF header and program headers of either class and looks for PT_INTERP.
template <class Header, class ProgramHeader>
bool namesInterpreter(std::ifstream& file) {
    Header header{};
    file.seekg(0);
    if (!file.read(reinterpret_cast<char*>(&header), sizeof header)) return false;
    for (unsigned i = 0; i < header.e_phnum; ++i) {
        ProgramHeader program{};
        file.seekg(static_cast<std::streamoff>(header.e_phoff + i * sizeof program));
        if (!file.read(reinterpret_cast<char*>(&program), sizeof program)) return false;
        if (program.p_type == PT_INTERP) return true;
    }
    return false;
}

}  // namespace

std::string findProgram(const std::string& command, const char* searchPath) {
    if (command.find('/') != std::string::npos) return command;
    for (const std::string& folder : splitList(searchPath)) {
        const fs::path candidate = fs::path(folder) / command;
        if (isExecutableFile(candidate)) return candidate.string();
    }
    return "";
}

bool isDynamicExecutable(const std::string& file) {
    std::ifstream in(file, std::ios::binary);
    unsigned char identity[EI_NIDENT] = {};
    if (!in.read(reinterpret_cast<char*>(identity), sizeof identity)) return false;
    if (std::memcmp(identity, ELFMAG, SELFMAG) != 0) return false;
    if (identity[EI_CLASS] == ELFCLASS64) return namesInterpreter<Elf64_Ehdr, Elf64_Phdr>(in);
    if (identity[EI_CLASS] == ELFCLASS32) return namesInterpreter<Elf32_Ehdr, Elf32_Phdr>(in);
    return false;
}

std::string forwardingLibraryPath() {
    std::error_code error;
    const fs::path self = fs::read_symlink("/proc/self/exe", error);
    if (error) return "";
    const fs::path forwarder = (self.parent_path() / QUORVANE_TRACE_FORWARDER).lexically_normal();
    return fs::is_regular_file(forwarder, error) ? forwarder.string() : "";
}

std::string libraryInLoaderListing(std::string_view listing) {
    const std::string key = std::string(kLibraryName) + " => ";
    std::istringstream lines{std::string(listing)};
    for (std::string line; std::getline(lines, line);) {
        const size_t start = line.find_first_not_of(" \t");
        if (start == std::string::npos || line.compare(start, key.size(), key) != 0) continue;
        std::string path = line.substr(start + key.size());
        // "/path (0xaddress)", or "not found"
        if (const size_t address = path.rfind(" (0x"); address != std::string::npos) path.erase(address);
        return path.empty() || path[0] != '/' ? "" : path;
    }
    return "";
}

LibraryLookup findRealLibrary(const std::string& program, const Environment& environment) {
    std::string path;
    if (isDynamicExecutable(program)) {
        Environment listing = environment;
        listing.set("LD_TRACE_LOADED_OBJECTS", "1");
        path = libraryInLoaderListing(runChild({program}, listing, true).output);
    }
    for (const std::string& folder :
         path.empty() ? splitList(environment.find("LD_LIBRARY_PATH")) : std::vector<std::string>{}) {
        const fs::path candidate = fs::path(folder) / kLibraryName;
        std::error_code ignored;
        if (fs::is_regular_file(candidate, ignored)) {
            path = candidate.string();
            break;
        }
    }
    if (path.empty()) {
        return {"", std::string(program) + " does not link " + kLibraryName + " and none is in LD_LIBRARY_PATH; " +
                        "name the library with --library PATH"};
    }
    std::error_code error;
    const fs::path absolute = fs::absolute(path, error).lexically_normal();
    if (error) return {"", "cannot resolve " + path + ": " + error.message()};
    return {absolute.string(), ""};
}

}  // namespace quorvane::trace
