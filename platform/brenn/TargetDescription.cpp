#include "TargetDescription.h"

#include <sys/stat.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <sstream>

#include "SimFaults.h"

namespace brenn::sim {

namespace {

constexpr const char* kDefaultTarget =
    "target Default simulated target\n"
    "register IrqRaise 0x100 u32          # writing v asserts the IRQs in v\n"
    "irq mask on write IrqRaise\n"
    "register Signature 0xFFFC u32 reset 0x5117A46E\n"
    "undeclared allowed\n";

struct ElementTypeName {
    const char* name;
    uint32_t code;
    uint32_t bytes;
};

constexpr ElementTypeName kElementTypes[] = {{"I8", 1, 1}, {"I16", 2, 2}, {"I32", 3, 4}, {"I64", 4, 8},
                                             {"U8", 5, 1}, {"U16", 6, 2}, {"U32", 7, 4}, {"U64", 8, 8}};

// Thrown inside the parser only, caught in parseTargetDescription: the first error ends it.
struct ParseError {
    std::string reason;
};

[[noreturn]] void fail(const std::string& reason) {
    throw ParseError{reason};
}

bool isNameCharacter(char c) {
    return std::isalnum(static_cast<unsigned char>(c)) || c == '_' || c == '.' || c == '-' || c == '/';
}

// A decimal or 0x-hexadecimal number of at most `max`.
uint64_t parseNumber(const std::string& text, const char* what, uint64_t max) {
    const bool hex = text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X');
    const char* digits = text.c_str() + (hex ? 2 : 0);
    const bool wellFormed = *digits != '\0' && std::all_of(digits, text.c_str() + text.size(), [&](char c) {
        return hex ? std::isxdigit(static_cast<unsigned char>(c)) != 0
                   : std::isdigit(static_cast<unsigned char>(c)) != 0;
    });
    if (!wellFormed) fail(std::string(what) + " '" + text + "' is not a number");
    errno = 0;
    const unsigned long long value = std::strtoull(digits, nullptr, hex ? 16 : 10);
    if (errno == ERANGE || value > max) {
        fail(std::string(what) + " " + text + " is out of range (at most " + std::to_string(max) + ")");
    }
    return value;
}

// The words of one statement, consumed from the front.
class Statement {
public:
    explicit Statement(const std::string& line) {
        std::istringstream words(line);
        for (std::string word; words >> word;) words_.push_back(word);
        rest_ = line;
    }

    bool blank() const { return words_.empty(); }
    bool empty() const { return next_ >= words_.size(); }
    const std::string& keyword() const { return words_.front(); }

    std::string word(const char* what) {
        if (empty()) fail(std::string("missing ") + what);
        return words_[next_++];
    }

    std::string name(const char* what) {
        std::string found = word(what);
        if (!std::all_of(found.begin(), found.end(), isNameCharacter)) {
            fail(std::string("'") + found + "' is not a valid " + what);
        }
        return found;
    }

    uint64_t number(const char* what, uint64_t max = UINT64_MAX) { return parseNumber(word(what), what, max); }

    void expect(const char* keyword) {
        std::string found = word(keyword);
        if (found != keyword) fail(std::string("expected '") + keyword + "', found '" + found + "'");
    }

    bool accept(const char* keyword) {
        if (empty() || words_[next_] != keyword) return false;
        ++next_;
        return true;
    }

    // Everything after the keyword, trimmed.
    std::string restAfterKeyword() const {
        size_t start = rest_.find(words_.front()) + words_.front().size();
        size_t first = rest_.find_first_not_of(" \t", start);
        size_t last = rest_.find_last_not_of(" \t\r");
        return first == std::string::npos ? std::string() : rest_.substr(first, last - first + 1);
    }

    void end() {
        if (!empty()) fail("unexpected '" + words_[next_] + "' at the end of the statement");
    }

    // The whole statement, its words one blank apart.
    std::string text() const {
        std::string joined;
        for (const std::string& word : words_) joined += (joined.empty() ? "" : " ") + word;
        return joined;
    }

private:
    std::vector<std::string> words_;
    size_t next_ = 1;  // the keyword is read by the dispatcher
    std::string rest_;
};

void parseRegister(Statement& s, TargetDescription& target) {
    RegisterSpec spec;
    spec.name = s.name("register name");
    if (target.findRegister(spec.name)) fail("register '" + spec.name + "' is declared twice");
    spec.address = static_cast<uint32_t>(s.number("register address", UINT32_MAX));
    std::string width = s.word("register width (u16 u32 u64)");
    if (width == "u16") {
        spec.bytes = 2;
    } else if (width == "u32") {
        spec.bytes = 4;
    } else if (width == "u64") {
        spec.bytes = 8;
    } else {
        fail("unknown register width '" + width + "' (u16 u32 u64)");
    }
    if (uint64_t{spec.address} + spec.bytes > uint64_t{UINT32_MAX} + 1) fail("register runs past the address space");
    if (s.accept("reset"))
        spec.resetValue = s.number("reset value", spec.bytes == 8 ? UINT64_MAX : (uint64_t{1} << (8 * spec.bytes)) - 1);
    s.end();
    for (const RegisterSpec& other : target.registers) {
        if (spec.address < other.address + other.bytes && other.address < spec.address + spec.bytes) {
            fail("register '" + spec.name + "' overlaps register '" + other.name + "'");
        }
    }
    target.registers.push_back(spec);
}

void parsePattern(Statement& s, FifoSpec& spec) {
    std::string kind = s.word("pattern (counter or constant)");
    if (kind == "constant") {
        spec.patternStart = s.number("constant value");
        spec.patternStep = 0;
    } else if (kind == "counter") {
        if (s.accept("start")) spec.patternStart = s.number("pattern start");
        if (s.accept("step")) spec.patternStep = s.number("pattern step");
    } else {
        fail("unknown pattern '" + kind + "' (counter or constant)");
    }
}

void parseFifo(Statement& s, TargetDescription& target) {
    FifoSpec spec;
    spec.number = static_cast<uint32_t>(s.number("FIFO number", UINT32_MAX));
    if (target.findFifo(spec.number)) fail("FIFO " + std::to_string(spec.number) + " is declared twice");
    spec.name = s.name("FIFO name");
    std::string direction = s.word("FIFO direction (to-host or to-target)");
    if (direction == "to-host") {
        spec.direction = FifoDirection::TargetToHost;
    } else if (direction == "to-target") {
        spec.direction = FifoDirection::HostToTarget;
    } else {
        fail("unknown FIFO direction '" + direction + "' (to-host or to-target)");
    }
    std::string type = s.word("element type");
    auto known = std::find_if(std::begin(kElementTypes), std::end(kElementTypes),
                              [&](const ElementTypeName& t) { return type == t.name; });
    if (known == std::end(kElementTypes)) fail("unknown element type '" + type + "' (I8 I16 I32 I64 U8 U16 U32 U64)");
    spec.elementType = known->code;
    spec.elementBytes = known->bytes;
    while (!s.empty()) {
        if (s.accept("depth")) {
            spec.depth = s.number("depth", kBrennSimMaxFifoDepth);
            if (spec.depth == 0) fail("depth must be at least 1");
        } else if (s.accept("rate")) {
            spec.rate = s.number("rate");
        } else if (s.accept("pattern")) {
            parsePattern(s, spec);
        } else {
            fail("unknown FIFO option '" + s.word("option") + "' (depth rate pattern)");
        }
    }
    target.fifos.push_back(spec);
}

void parseIrq(Statement& s, TargetDescription& target) {
    std::string which = s.word("IRQ bit or 'mask'");
    const bool mask = which == "mask";
    uint32_t bit = 0;
    if (!mask) {
        bit = static_cast<uint32_t>(parseNumber(which, "IRQ bit", 31));
    }
    s.expect("on");
    std::string source = s.word("IRQ source (write or fifo)");
    if (source == "write") {
        std::string name = s.name("register name");
        const RegisterSpec* reg = target.findRegister(name);
        if (!reg) fail("register '" + name + "' is not declared");
        target.registerIrqs.push_back({name, reg->address, mask, bit});
    } else if (source == "fifo") {
        if (mask) fail("a FIFO raises single IRQs, not a mask");
        const auto number = static_cast<uint32_t>(s.number("FIFO number", UINT32_MAX));
        auto fifo = std::find_if(target.fifos.begin(), target.fifos.end(),
                                 [&](const FifoSpec& f) { return f.number == number; });
        if (fifo == target.fifos.end()) fail("FIFO " + std::to_string(number) + " is not declared");
        s.expect("every");
        uint64_t every = s.number("element count");
        if (every == 0) fail("element count must be at least 1");
        fifo->irqs.push_back({bit, every});
    } else {
        fail("unknown IRQ source '" + source + "' (write or fifo)");
    }
    s.end();
}

// ---- fault, stall and drop --------------------------------------------------------------

// The state of one parse that statements need beyond the description itself.
struct ParseContext {
    size_t line = 0;
    // FIFO numbers and register addresses used before or without a declaration: fine only on a
    // target with `undeclared allowed`, which may come later in the file.
    struct Undeclared {
        size_t line;
        std::string reason;
    };
    std::vector<Undeclared> undeclared;
};

size_t addInjected(Statement& s, TargetDescription& target, const ParseContext& context, std::string function = {},
                   int32_t status = 0) {
    target.injected.push_back({static_cast<uint32_t>(context.line), s.text(), std::move(function), status});
    return target.injected.size() - 1;
}

uint32_t usedFifo(Statement& s, const TargetDescription& target, ParseContext& context) {
    const auto number = static_cast<uint32_t>(s.number("FIFO number", UINT32_MAX));
    if (!target.findFifo(number)) {
        context.undeclared.push_back({context.line, "FIFO " + std::to_string(number) + " is not declared"});
    }
    return number;
}

// A register named, or given by its address (a word that starts with a digit).
uint32_t usedRegister(Statement& s, const TargetDescription& target, ParseContext& context) {
    const std::string word = s.word("register name or address");
    if (!std::isdigit(static_cast<unsigned char>(word[0]))) {
        const RegisterSpec* reg = target.findRegister(word);
        if (!reg) fail("register '" + word + "' is not declared");
        return reg->address;
    }
    const auto address = static_cast<uint32_t>(parseNumber(word, "register address", UINT32_MAX));
    const bool declared = std::any_of(target.registers.begin(), target.registers.end(),
                                      [&](const RegisterSpec& spec) { return spec.address == address; });
    if (!declared) context.undeclared.push_back({context.line, "no register is declared at address " + word});
    return address;
}

int32_t parseStatus(Statement& s) {
    const std::string text = s.word("status");
    const bool negative = text[0] == '-';
    uint64_t magnitude = 0;
    try {
        magnitude = parseNumber(negative ? text.substr(1) : text, "status", UINT64_MAX);
    } catch (const ParseError&) {
        fail("status '" + text + "' is not a number");
    }
    if (magnitude > (negative ? uint64_t{1} << 31 : (uint64_t{1} << 31) - 1)) {
        fail("status " + text + " is out of range (-2147483648 to 2147483647)");
    }
    if (magnitude == 0) fail("status 0 injects nothing");
    return static_cast<int32_t>(negative ? -static_cast<int64_t>(magnitude) : static_cast<int64_t>(magnitude));
}

void parseFault(Statement& s, TargetDescription& target, ParseContext& context) {
    FaultSpec fault;
    fault.function = s.word("function name");
    const FaultableFunction* function = findFaultable(fault.function);
    if (!function && takesNoSession(fault.function)) {
        fail(fault.function + " takes no session: a fault counts the calls of a session");
    }
    if (!function) fail("unknown function '" + fault.function + "' (" + faultableNames() + ")");
    if (s.accept("fifo")) {
        if (function->argument != FaultScope::Fifo) fail(fault.function + " names no FIFO");
        fault.scope = FaultScope::Fifo;
        fault.number = usedFifo(s, target, context);
    } else if (s.accept("register")) {
        if (function->argument != FaultScope::Register) fail(fault.function + " names no register");
        fault.scope = FaultScope::Register;
        fault.number = usedRegister(s, target, context);
    }
    s.expect("after");
    fault.after = s.number("call count");
    s.expect("calls");
    s.expect("status");
    fault.status = parseStatus(s);
    if (s.accept("always")) {
        fault.times = 0;
    } else if (s.accept("times")) {
        fault.times = s.number("times");
        if (fault.times == 0) fail("times must be at least 1");
    }
    s.end();
    fault.statement = addInjected(s, target, context, fault.function, fault.status);
    target.faults.push_back(fault);
}

void parseStall(Statement& s, TargetDescription& target, ParseContext& context) {
    StallSpec stall;
    s.expect("fifo");
    stall.fifo = usedFifo(s, target, context);
    s.expect("after");
    stall.after = s.number("element count");
    s.expect("elements");
    s.expect("for");
    stall.milliseconds = s.number("stall time", UINT32_MAX);
    if (stall.milliseconds == 0) fail("a stall lasts at least 1 ms");
    s.expect("ms");
    s.end();
    stall.statement = addInjected(s, target, context);
    target.stalls.push_back(stall);
}

void parseDrop(Statement& s, TargetDescription& target, ParseContext& context) {
    IrqDropSpec drop;
    s.expect("irq");
    drop.bit = static_cast<uint32_t>(s.number("IRQ bit", 31));
    s.expect("after");
    drop.after = s.number("assertion count");
    s.end();
    drop.statement = addInjected(s, target, context);
    target.irqDrops.push_back(drop);
}

void parseStatement(Statement& s, TargetDescription& target, ParseContext& context) {
    const std::string& keyword = s.keyword();
    if (keyword == "register") {
        parseRegister(s, target);
    } else if (keyword == "fifo") {
        parseFifo(s, target);
    } else if (keyword == "irq") {
        parseIrq(s, target);
    } else if (keyword == "resource") {
        std::string name = s.name("resource name");
        if (target.declaresResource(name)) fail("resource '" + name + "' is declared twice");
        s.end();
        target.resources.push_back(name);
    } else if (keyword == "undeclared") {
        s.expect("allowed");
        s.end();
        target.undeclaredAllowed = true;
    } else if (keyword == "fault") {
        parseFault(s, target, context);
    } else if (keyword == "stall") {
        parseStall(s, target, context);
    } else if (keyword == "drop") {
        parseDrop(s, target, context);
    } else if (keyword == "target") {
        fail("a description names its target once");
    } else {
        fail("unknown statement '" + keyword + "' (register fifo irq resource undeclared fault stall drop)");
    }
}

}  // namespace

const RegisterSpec* TargetDescription::findRegister(const std::string& name) const {
    for (const RegisterSpec& spec : registers) {
        if (spec.name == name) return &spec;
    }
    return nullptr;
}

const FifoSpec* TargetDescription::findFifo(uint32_t number) const {
    for (const FifoSpec& spec : fifos) {
        if (spec.number == number) return &spec;
    }
    return nullptr;
}

bool TargetDescription::declaresResource(const std::string& name) const {
    return std::find(resources.begin(), resources.end(), name) != resources.end();
}

bool TargetDescription::allowsAccess(uint32_t address, size_t bytes) const {
    if (undeclaredAllowed) return true;
    return std::any_of(registers.begin(), registers.end(), [&](const RegisterSpec& spec) {
        return address >= spec.address && uint64_t{address} + bytes <= uint64_t{spec.address} + spec.bytes;
    });
}

std::vector<StallSpec> TargetDescription::stallsOf(uint32_t fifo) const {
    std::vector<StallSpec> found;
    std::copy_if(stalls.begin(), stalls.end(), std::back_inserter(found),
                 [&](const StallSpec& stall) { return stall.fifo == fifo; });
    return found;
}

uint32_t TargetDescription::irqsOnWrite(uint32_t address, uint64_t value) const {
    uint32_t raised = 0;
    for (const RegisterIrq& irq : registerIrqs) {
        if (irq.address != address) continue;
        if (irq.mask) {
            raised |= static_cast<uint32_t>(value);
        } else if (value != 0) {
            raised |= uint32_t{1} << irq.bit;
        }
    }
    return raised;
}

std::shared_ptr<const TargetDescription> parseTargetDescription(const std::string& text, std::string& error) {
    auto target = std::make_shared<TargetDescription>();
    std::istringstream lines(text);
    ParseContext context;
    size_t& lineNumber = context.line;
    bool named = false;
    try {
        for (std::string line; std::getline(lines, line);) {
            ++lineNumber;
            line = line.substr(0, line.find('#'));
            Statement statement(line);
            if (statement.blank()) continue;
            if (!named) {
                if (statement.keyword() != "target") {
                    error = "not a target description: it must start with a 'target' statement";
                    return nullptr;
                }
                target->title = statement.restAfterKeyword();
                if (target->title.empty()) fail("the target needs a name");
                named = true;
                continue;
            }
            parseStatement(statement, *target, context);
        }
    } catch (const ParseError& parseError) {
        error = std::to_string(lineNumber) + ": " + parseError.reason;
        return nullptr;
    }
    if (!named) {
        error = "not a target description: it has no 'target' statement";
        return nullptr;
    }
    if (!target->undeclaredAllowed && !context.undeclared.empty()) {
        error = std::to_string(context.undeclared.front().line) + ": " + context.undeclared.front().reason;
        return nullptr;
    }
    return target;
}

std::shared_ptr<const TargetDescription> loadTarget(const char* bitfile, std::string& error) {
    struct stat info {};
    if (!bitfile || *bitfile == '\0' || (::stat(bitfile, &info) != 0 && errno == ENOENT)) {
        static const std::shared_ptr<const TargetDescription> builtIn = [] {
            std::string ignored;
            return parseTargetDescription(kDefaultTarget, ignored);
        }();
        return builtIn;
    }
    const std::string path(bitfile);
    if (S_ISDIR(info.st_mode)) {
        error = path + ": not a target description: it is a directory";
        return nullptr;
    }
    std::ifstream file(path, std::ios::binary);
    if (!file) {
        error = path + ": cannot be read: " + std::strerror(errno);
        return nullptr;
    }
    const std::string text{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    if (text.find('\0') != std::string::npos) {
        error = path + ": not a target description: it holds binary data";
        return nullptr;
    }
    std::shared_ptr<const TargetDescription> target = parseTargetDescription(text, error);
    if (!target) error = path + ":" + (std::isdigit(static_cast<unsigned char>(error[0])) ? "" : " ") + error;
    return target;
}

const char* defaultTargetDescription() noexcept {
    return kDefaultTarget;
}

}  // namespace brenn::sim
