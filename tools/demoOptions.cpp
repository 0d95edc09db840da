#include "demoOptions.h"

#include <cctype>
#include <charconv>
#include <cstring>
#include <filesystem>
#include <string_view>

namespace quorvane::tools {

namespace {

// The largest block the target's buffers can hold; larger requests would only be cut.
constexpr uint64_t kMaxBlock = uint64_t{1} << 20;

std::optional<uint64_t> parseNumber(std::string_view text) {
    uint64_t value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc{} || end != text.data() + text.size() || text.empty()) return std::nullopt;
    return value;
}

std::optional<uint32_t> parseFifo(const std::string& text) {
    const auto value = parseNumber(text);
    if (!value || *value > UINT32_MAX) return std::nullopt;
    return static_cast<uint32_t>(*value);
}

bool takesValue(std::string_view name) {
    for (const char* known : {"--target", "--read-fifo", "--write-fifo", "--type", "--amount", "--block", "--path"}) {
        if (name == known) return true;
    }
    return false;
}

// Applies one option with its value; answers an error text, empty on success.
std::string apply(DemoOptions& options, std::string_view name, const std::string& value) {
    if (name == "--target") {
        if (value.empty()) return "--target needs a file name";
        options.target = value;
    } else if (name == "--read-fifo" || name == "--write-fifo") {
        const auto fifo = parseFifo(value);
        if (!fifo) return std::string(name) + " needs a FIFO number, not '" + value + "'";
        (name == "--read-fifo" ? options.readFifo : options.writeFifo) = fifo;
    } else if (name == "--type") {
        options.type = elementTypeNamed(value);
        if (!options.type) return "unknown element type '" + value + "' (" + elementTypeNames() + ")";
    } else if (name == "--amount") {
        const auto amount = parseSize(value);
        if (!amount || *amount == 0) return "--amount needs a size such as 4M or 1G, not '" + value + "'";
        options.amount = *amount;
    } else if (name == "--block") {
        const auto block = parseNumber(value);
        if (!block || *block == 0 || *block > kMaxBlock) {
            return "--block needs an element count from 1 to " + std::to_string(kMaxBlock) + ", not '" + value + "'";
        }
        options.block = *block;
    } else {  // --path, the last option that takes a value
        if (value == "regions") {
            options.paths = StreamPaths::Regions;
        } else if (value == "copies") {
            options.paths = StreamPaths::Copies;
        } else if (value == "both") {
            options.paths = StreamPaths::Both;
        } else {
            return "--path is regions, copies or both, not '" + value + "'";
        }
    }
    return {};
}

}  // namespace

std::optional<uint64_t> parseSize(const std::string& text) {
    if (text.empty()) return std::nullopt;
    unsigned shift = 0;
    std::string_view digits = text;
    switch (std::toupper(static_cast<unsigned char>(text.back()))) {
        case 'K':
            shift = 10;
            break;
        case 'M':
            shift = 20;
            break;
        case 'G':
            shift = 30;
            break;
        default:
            break;
    }
    if (shift != 0) digits.remove_suffix(1);
    const auto value = parseNumber(digits);
    if (!value || *value > (UINT64_MAX >> shift)) return std::nullopt;
    return *value << shift;
}

ParsedOptions parseDemoOptions(int argc, const char* const* argv) {
    ParsedOptions parsed;
    for (int i = 1; i < argc; ++i) {
        std::string_view argument = argv[i];
        if (argument == "--help" || argument == "-h") {
            parsed.options.help = true;
            continue;
        }
        if (argument == "--version") {
            parsed.options.version = true;
            continue;
        }
        if (!argument.starts_with("--")) {
            parsed.error = "unexpected argument '" + std::string(argument) + "'";
            return parsed;
        }
        std::string value;
        const size_t equals = argument.find('=');
        const std::string_view name = argument.substr(0, equals);
        if (!takesValue(name)) {
            parsed.error = "unknown option '" + std::string(name) + "'";
            return parsed;
        }
        if (equals != std::string_view::npos) {
            value = argument.substr(equals + 1);
            argument = name;
        } else if (i + 1 < argc) {
            value = argv[++i];
        } else {
            parsed.error = std::string(argument) + " needs a value";
            return parsed;
        }
        parsed.error = apply(parsed.options, argument, value);
        if (!parsed.error.empty()) return parsed;
    }
    return parsed;
}

std::string targetFileProblem(const std::string& path) {
    std::error_code error;
    const std::filesystem::file_status status = std::filesystem::status(path, error);
    const std::string named = "target description '" + path + "' ";
    switch (status.type()) {
        case std::filesystem::file_type::regular:
            return {};
        case std::filesystem::file_type::not_found:
            return named + "does not exist";
        case std::filesystem::file_type::directory:
            return named + "is a directory, not a file";
        case std::filesystem::file_type::none:
            return named + "cannot be examined: " + error.message();
        default:
            return named + "is not a regular file";
    }
}

const char* demoUsage() {
    return "usage: quorvane-demo [options]\n"
           "Streams data through FIFOs of the simulated FPGA target with libQuorvane, as a Host\n"
           "program does: zero-copy regions and copying transfers, in both directions. Every\n"
           "element read is checked against the target's pattern, and the target checks every\n"
           "element written. At the end it prints throughput, every status met with its meaning,\n"
           "and the data errors; the exit code is 0 only when there was neither an error status\n"
           "nor a data error, and 2 for a command line it cannot follow or FIFOs the target\n"
           "cannot serve.\n"
           "\n"
           "options:\n"
           "  --target FILE      target description to simulate (format: platform/brenn/\n"
           "                     TargetDescription.md); default: the built-in default target,\n"
           "                     whose FIFOs take type and direction from their first use\n"
           "  --read-fifo N      FIFO read from (target to host); default: the first declared\n"
           "                     to-host FIFO, or 0 on a target with undeclared FIFOs\n"
           "  --write-fifo N     FIFO written to (host to target); default: the first declared\n"
           "                     to-target FIFO, or 1 on a target with undeclared FIFOs\n"
           "  --type T           element type: I8 I16 I32 I64 U8 U16 U32 U64, in any case;\n"
           "                     default: the declared type, or U64 for undeclared FIFOs\n"
           "  --amount SIZE      bytes per direction and path, with suffix K, M or G (powers\n"
           "                     of 1024); default 1G\n"
           "  --block N          elements per region or transfer, 1 to 1048576; default 65536\n"
           "  --path P           regions, copies or both (default): zero-copy regions lent by\n"
           "                     the target, copying transfers through Host arrays, or both\n"
           "  --help             this text\n"
           "  --version          the version of libQuorvane the demo was built with\n"
           "\n"
           "Options take their value as the next argument or after '=' (--amount=4M).\n";
}

}  // namespace quorvane::tools
