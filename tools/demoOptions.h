// The demo's command line.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "elementType.h"

namespace quorvane::tools {

enum class StreamPaths { Regions, Copies, Both };

struct DemoOptions {
    std::string target;  // target description file; empty: the built-in default target
    std::optional<uint32_t> readFifo;
    std::optional<uint32_t> writeFifo;
    const ElementType* type = nullptr;  // null: the declared type, or U64 for undeclared FIFOs
    uint64_t amount = uint64_t{1} << 30;
    uint64_t block = 65536;
    StreamPaths paths = StreamPaths::Both;
    bool help = false;
    bool version = false;
};

struct ParsedOptions {
    DemoOptions options;
    std::string error;  // empty when the command line is valid
};

ParsedOptions parseDemoOptions(int argc, const char* const* argv);

// "4096", "64K", "4M", "1G" (powers of 1024); nullopt for anything else or an overflow.
std::optional<uint64_t> parseSize(const std::string& text);

// Why `path` cannot be a target description (missing, a directory, not a regular file), or
// empty when it names a regular file. Asked before the simulated target is given the path.
std::string targetFileProblem(const std::string& path);

const char* demoUsage();

}  // namespace quorvane::tools
