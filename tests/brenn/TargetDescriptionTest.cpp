// Targets described in text files: what a broken description tells its author, and how a
// described target's registers, interrupts, FIFOs and resources behave through BrennDll_.
#include <unistd.h>

#include <atomic>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <ostream>
#include <string>
#include <vector>

#include "BrennSimFixture.h"

namespace {

// A file in the test's temporary directory, removed again when the test ends.
class TempFile {
public:
    explicit TempFile(const std::string& contents) {
        static std::atomic<int> serial{0};
        path_ =
            ::testing::TempDir() + "target-" + std::to_string(::getpid()) + "-" + std::to_string(serial++) + ".target";
        std::ofstream(path_, std::ios::binary) << contents;
    }
    ~TempFile() { std::remove(path_.c_str()); }
    TempFile(const TempFile&) = delete;
    TempFile& operator=(const TempFile&) = delete;

    const std::string& path() const { return path_; }

private:
    std::string path_;
};

struct BrokenCase {
    const char* what;
    std::string text;
    std::string expected;  // what the line on standard error says after "libBrenn: <path>"
};

std::ostream& operator<<(std::ostream& out, const BrokenCase& c) {
    return out << c.what;
}

const std::string kHeader = "target Bench board\n";

const BrokenCase kBrokenCases[] = {
    {"binary",
     std::string("\x7f"
                 "ELF\0\0\x01",
                 7),
     ": not a target description: it holds binary data"},
    {"empty", "", ": not a target description: it has no 'target' statement"},
    {"no target line", "register Control 0 u32\n", ": not a target description: it must start with a 'target'"},
    {"unnamed target", "# comment\n\ntarget   \n", ":3: the target needs a name"},
    {"element type", kHeader + "fifo 0 Samples to-host U24\n", ":2: unknown element type 'U24'"},
    {"statement", kHeader + "clock 40MHz\n", ":2: unknown statement 'clock'"},
    {"second target", kHeader + "target Again\n", ":2: a description names its target once"},
    {"width", kHeader + "register Control 0 u8\n", ":2: unknown register width 'u8'"},
    {"number", kHeader + "register Control 0xZZ u32\n", ":2: register address '0xZZ' is not a number"},
    {"reset too wide", kHeader + "register Control 0 u16 reset 0x10000\n", ":2: reset value 0x10000 is out of range"},
    {"twice", kHeader + "register A 0 u32\nregister A 8 u32\n", ":3: register 'A' is declared twice"},
    {"overlap", kHeader + "register A 0 u32\nregister B 2 u16\n", ":3: register 'B' overlaps register 'A'"},
    {"trailing", kHeader + "register A 0 u32 reset 1 now\n", ":2: unexpected 'now'"},
    {"direction", kHeader + "fifo 0 S sideways U8\n", ":2: unknown FIFO direction 'sideways'"},
    {"depth 0", kHeader + "fifo 0 S to-host U8 depth 0\n", ":2: depth must be at least 1"},
    {"depth", kHeader + "fifo 0 S to-host U8 depth 1048577\n", ":2: depth 1048577 is out of range"},
    {"pattern", kHeader + "fifo 0 S to-host U8 pattern noise\n", ":2: unknown pattern 'noise'"},
    {"fifo twice", kHeader + "fifo 1 S to-host U8\nfifo 1 T to-target U8\n", ":3: FIFO 1 is declared twice"},
    {"irq register", kHeader + "irq 0 on write Control\n", ":2: register 'Control' is not declared"},
    {"irq bit", kHeader + "register C 0 u32\nirq 32 on write C\n", ":3: IRQ bit 32 is out of range"},
    {"irq fifo", kHeader + "irq 1 on fifo 4 every 8\n", ":2: FIFO 4 is not declared"},
    {"irq period", kHeader + "fifo 4 S to-host U8\nirq 1 on fifo 4 every 0\n", ":3: element count must be"},
    {"resource", kHeader + "resource Slot/1\nresource Slot/1\n", ":3: resource 'Slot/1' is declared twice"},
    {"name", kHeader + "resource Slot*1\n", ":2: 'Slot*1' is not a valid resource name"},
    {"fault function", kHeader + "fault BrennDll_Frob after 0 calls status -1\n",
     ":2: unknown function 'BrennDll_Frob' (BrennDll_OpenResource BrennDll_Close "},
    {"fault without session", kHeader + "fault BrennDll_Open after 0 calls status -1\n",
     ":2: BrennDll_Open takes no session"},
    {"fault fifo", kHeader + "fault BrennDll_Close fifo 0 after 0 calls status -1\n",
     ":2: BrennDll_Close names no FIFO"},
    {"fault register", kHeader + "fifo 0 S to-host U8\nfault BrennDll_ReadFifoU8 register 0 after 0 calls status -1\n",
     ":3: BrennDll_ReadFifoU8 names no register"},
    {"fault undeclared fifo", kHeader + "fault BrennDll_StartFifo fifo 3 after 0 calls status -1\n",
     ":2: FIFO 3 is not declared"},
    {"fault register name", kHeader + "fault BrennDll_WriteU32 register Control after 0 calls status -1\n",
     ":2: register 'Control' is not declared"},
    {"fault register address",
     kHeader + "register C 0 u32\nfault BrennDll_WriteU32 register 0x2 after 0 calls status 1\n",
     ":3: no register is declared at address 0x2"},
    {"fault calls", kHeader + "fault BrennDll_Run after 2 status -1\n", ":2: expected 'calls', found 'status'"},
    {"fault status 0", kHeader + "fault BrennDll_Run after 0 calls status 0\n", ":2: status 0 injects nothing"},
    {"fault status range", kHeader + "fault BrennDll_Run after 0 calls status -2147483649\n",
     ":2: status -2147483649 is out of range"},
    {"fault status word", kHeader + "fault BrennDll_Run after 0 calls status -x\n", ":2: status '-x' is not a number"},
    {"fault times 0", kHeader + "fault BrennDll_Run after 0 calls status -1 times 0\n", ":2: times must be at least 1"},
    {"fault times and always", kHeader + "fault BrennDll_Run after 0 calls status -1 times 2 always\n",
     ":2: unexpected 'always'"},
    {"stall fifo", kHeader + "stall fifo 2 after 10 elements for 5 ms\n", ":2: FIFO 2 is not declared"},
    {"stall 0 ms", kHeader + "fifo 2 S to-host U8\nstall fifo 2 after 10 elements for 0 ms\n",
     ":3: a stall lasts at least 1 ms"},
    {"stall unit", kHeader + "fifo 2 S to-host U8\nstall fifo 2 after 10 elements for 5 s\n",
     ":3: expected 'ms', found 's'"},
    {"drop bit", kHeader + "drop irq 32 after 0\n", ":2: IRQ bit 32 is out of range"},
    {"drop count", kHeader + "drop irq 3\n", ":2: missing after"},
};

class BrokenDescription : public BrennSimTest, public ::testing::WithParamInterface<BrokenCase> {};

TEST_P(BrokenDescription, OpenFailsWithOneLineNamingFileLineAndReason) {
    TempFile file(GetParam().text);
    uint32_t session = 0xABCD;
    ::testing::internal::CaptureStderr();
    const int32_t status = BrennDll_Open(file.path().c_str(), "", "RIO0", 0, &session);
    const std::string said = ::testing::internal::GetCapturedStderr();
    EXPECT_EQ(status, kBrennSimBadTargetDescription);
    EXPECT_EQ(BrennSim_OpenSessionCount(), 0u);
    const std::string prefix = "libBrenn: " + file.path() + GetParam().expected;
    EXPECT_EQ(said.rfind(prefix, 0), 0u) << said;
    EXPECT_EQ(said.find('\n'), said.size() - 1) << "exactly one line: " << said;
}

INSTANTIATE_TEST_SUITE_P(Cases, BrokenDescription, ::testing::ValuesIn(kBrokenCases));

TEST_F(BrennSimTest, ADirectoryIsNoDescription) {
    uint32_t session = 0;
    ::testing::internal::CaptureStderr();
    EXPECT_EQ(BrennDll_Open(::testing::TempDir().c_str(), "", "RIO0", 0, &session), kBrennSimBadTargetDescription);
    EXPECT_NE(::testing::internal::GetCapturedStderr().find("it is a directory"), std::string::npos);
    EXPECT_EQ(BrennSim_OpenSessionCount(), 0u);
}

TEST_F(BrennSimTest, BitfilesNamingNoFileOpenTheDefaultTarget) {
    for (const char* bitfile : {static_cast<const char*>(nullptr), "", "no/such/file.target"}) {
        uint32_t session = 0;
        ASSERT_EQ(BrennDll_Open(bitfile, "", "RIO0", 0, &session), 0);
        char name[64] = {};
        EXPECT_EQ(BrennSim_TargetName(session, name, sizeof name), 1);
        EXPECT_STREQ(name, "Default simulated target");
        EXPECT_EQ(BrennSim_AllowsUndeclared(session), 1);
        EXPECT_EQ(BrennSim_DescribeFifos(session, nullptr, 0), 0u);
        uint32_t signature = 0;
        EXPECT_EQ(BrennDll_ReadU32(session, 0xFFFC, &signature), 0);
        EXPECT_EQ(signature, 0x5117A46Eu);
    }
}

TEST_F(BrennSimTest, ShippedExampleTargetsLoad) {
    size_t examples = 0;
    for (const auto& entry : std::filesystem::directory_iterator(BRENN_EXAMPLES_DIR)) {
        SCOPED_TRACE(entry.path().string());
        uint32_t session = 0;
        ASSERT_EQ(BrennDll_Open(entry.path().c_str(), "", "RIO0", 0, &session), 0);
        EXPECT_EQ(BrennSim_AllowsUndeclared(session), 0);
        EXPECT_GT(BrennSim_DescribeFifos(session, nullptr, 0), 0u);
        ++examples;
    }
    EXPECT_GT(examples, 0u);
}

// Fault, stall and drop statements are listed as written, each with what it did on the session;
// a FIFO they name may be declared by `undeclared allowed` further down.
TEST_F(BrennSimTest, FaultStatementsAreListedWithWhatTheyDidOnTheSession) {
    TempFile file(kHeader +
                  "register Control 0x10 u32\n"
                  "fault  BrennDll_WriteU32   register Control after 1 calls status -0xC4E0   # -50400\n"
                  "stall fifo 7 after 3 elements for 1 ms\n"
                  "drop irq 4 after 0\n"
                  "undeclared allowed\n");
    uint32_t session = 0;
    ASSERT_EQ(BrennDll_Open(file.path().c_str(), "", "RIO0", 0, &session), 0);
    EXPECT_EQ(BrennDll_WriteU32(session, 0x10, 1), 0);
    EXPECT_EQ(BrennDll_WriteU32(session, 0x10, 1), kBrennTimeout);
    EXPECT_EQ(BrennDll_WriteU32(session, 0x10, 1), 0) << "once, without 'times'";
    uint8_t data[8] = {};
    EXPECT_EQ(BrennDll_ReadFifoU8(session, 7, data, 3, 0, nullptr), 0);
    EXPECT_EQ(BrennDll_ReadFifoU8(session, 7, data, 1, 2000, nullptr), 0);
    EXPECT_EQ(data[0], 3u) << "after the stall, the pattern goes on where it stopped";
    EXPECT_EQ(BrennSim_RaiseIrqs(session, 0x10), 1);
    EXPECT_EQ(BrennSim_RaiseIrqs(session, 0x10), 1);

    BrennSimFaultInfo infos[4] = {};
    ASSERT_EQ(BrennSim_DescribeFaults(session, infos, 4), 3u);
    EXPECT_EQ(infos[0].line, 3u);
    EXPECT_STREQ(infos[0].statement, "fault BrennDll_WriteU32 register Control after 1 calls status -0xC4E0");
    EXPECT_STREQ(infos[0].function, "BrennDll_WriteU32");
    EXPECT_EQ(infos[0].status, kBrennTimeout);
    EXPECT_STREQ(infos[1].statement, "stall fifo 7 after 3 elements for 1 ms");
    EXPECT_STREQ(infos[2].function, "");
    EXPECT_EQ(infos[2].status, 0);
    for (const BrennSimFaultInfo& info : {infos[0], infos[1], infos[2]}) EXPECT_EQ(info.acted, 1u) << info.statement;

    // A session of its own counts from 0.
    const uint32_t other = openResource(session, "Board0/Any");
    EXPECT_EQ(BrennSim_DescribeFaults(other, infos, 1), 3u);
    EXPECT_EQ(infos[0].acted, 0u);
    EXPECT_EQ(BrennSim_DescribeFaults(kUnknownSession, infos, 4), 0u);
}

// A board with every kind of declaration.
const char* const kBoard = R"(# two-channel acquisition board
target Acquisition board   # the title runs to the comment
register Control 0x0 u32
register Status 0x4 u32 reset 0x1
register Threshold 0x8 u16 reset 100
register Timestamp 0x10 u64 reset 0x0123456789ABCDEF
register IrqRaise 0x20 u32
fifo 0 Samples to-host I16 depth 64 pattern counter start 5 step 3
fifo 1 Waveform to-target U32 depth 32 pattern constant 0xCAFE
fifo 2 Slow to-host U8 rate 1000
irq 0 on write Control
irq mask on write IrqRaise
irq 4 on fifo 0 every 64
resource Board0/Analog
resource Board0/Digital
)";

class DescribedTarget : public BrennSimTest {
protected:
    void SetUp() override {
        BrennSimTest::SetUp();
        ASSERT_EQ(BrennDll_Open(file_.path().c_str(), "", "RIO0", 0, &session_), 0);
    }

    uint32_t asserted(uint32_t irqs) const {
        uint32_t seen = 0;
        uint8_t timedOut = 0;
        EXPECT_EQ(BrennDll_WaitOnIrqs(session_, nullptr, irqs, 0, &seen, &timedOut), 0);
        return seen;
    }

    TempFile file_{kBoard};
    uint32_t session_ = 0;
};

TEST_F(DescribedTarget, TellsWhatItDeclares) {
    char name[8] = {};
    EXPECT_EQ(BrennSim_TargetName(session_, name, sizeof name), 1);
    EXPECT_STREQ(name, "Acquisi") << "cut to the capacity, terminated";
    EXPECT_EQ(BrennSim_AllowsUndeclared(session_), 0);
    BrennSimFifoInfo fifos[2] = {};
    ASSERT_EQ(BrennSim_DescribeFifos(session_, fifos, 2), 3u) << "the count of all, though two fit";
    EXPECT_EQ(fifos[0].fifo, 0u);
    EXPECT_EQ(fifos[0].direction, uint32_t{kBrennSimToHost});
    EXPECT_EQ(fifos[0].elementType, 2u);
    EXPECT_EQ(fifos[0].elementBytes, 2u);
    EXPECT_EQ(fifos[0].depth, 64u);
    EXPECT_EQ(fifos[0].patternStart, 5u);
    EXPECT_EQ(fifos[0].patternStep, 3u);
    EXPECT_STREQ(fifos[0].name, "Samples");
    EXPECT_EQ(fifos[1].direction, uint32_t{kBrennSimToTarget});
    EXPECT_EQ(fifos[1].elementType, 7u);
    EXPECT_EQ(fifos[1].patternStart, 0xCAFEu);
    EXPECT_EQ(fifos[1].patternStep, 0u);
}

TEST_F(DescribedTarget, RegistersHoldResetValuesAgainAfterResetAndDownload) {
    auto expectResetValues = [&] {
        uint32_t status = 0;
        uint16_t threshold = 0;
        uint64_t timestamp = 0;
        ASSERT_EQ(BrennDll_ReadU32(session_, 0x4, &status), 0);
        ASSERT_EQ(BrennDll_ReadU16(session_, 0x8, &threshold), 0);
        ASSERT_EQ(BrennDll_ReadU64(session_, 0x10, &timestamp), 0);
        EXPECT_EQ(status, 1u);
        EXPECT_EQ(threshold, 100u);
        EXPECT_EQ(timestamp, 0x0123456789ABCDEFu);
    };
    expectResetValues();
    for (int32_t (*restore)(uint32_t) : {BrennDll_Reset, BrennDll_Download}) {
        ASSERT_EQ(BrennDll_WriteU32(session_, 0x4, 7), 0);
        ASSERT_EQ(BrennDll_WriteU16(session_, 0x8, 9), 0);
        ASSERT_EQ(restore(session_), 0);
        expectResetValues();
    }
}

TEST_F(DescribedTarget, RefusesAccessOutsideItsRegisters) {
    uint32_t value32 = 0;
    uint64_t value64 = 0;
    uint32_t array[3] = {};
    EXPECT_EQ(BrennDll_ReadU32(session_, 0xC, &value32), kBrennSimInvalidArgument) << "between registers";
    EXPECT_EQ(BrennDll_ReadU32(session_, 0x8, &value32), kBrennSimInvalidArgument) << "wider than the u16";
    EXPECT_EQ(BrennDll_WriteU64(session_, 0x0, 1), kBrennSimInvalidArgument) << "spans two registers";
    EXPECT_EQ(BrennDll_ReadU64(session_, 0x10, &value64), 0);
    EXPECT_EQ(BrennDll_ReadU32(session_, 0x14, &value32), 0) << "the upper half of the u64";
    EXPECT_EQ(value32, 0x01234567u);
    EXPECT_EQ(BrennDll_ReadArrayU32(session_, 0x0, array, 2), 0) << "Control and Status";
    EXPECT_EQ(array[1], 1u);
    EXPECT_EQ(BrennDll_ReadArrayU32(session_, 0x0, array, 3), kBrennSimInvalidArgument) << "runs into 0x8";
    EXPECT_EQ(BrennDll_WriteArrayU32(session_, 0x4, array, 2), kBrennSimInvalidArgument);
}

TEST_F(DescribedTarget, RegisterWritesRaiseTheirInterrupts) {
    ASSERT_EQ(BrennDll_WriteU32(session_, 0x0, 0), 0);
    EXPECT_EQ(asserted(0xFFFFFFFF), 0u) << "a zero write raises nothing";
    ASSERT_EQ(BrennDll_WriteU32(session_, 0x0, 5), 0);
    EXPECT_EQ(asserted(0xFFFFFFFF), 0x1u);
    ASSERT_EQ(BrennDll_WriteU32(session_, 0x20, 0x300), 0);
    EXPECT_EQ(asserted(0xFFFFFFFF), 0x301u);
    ASSERT_EQ(BrennDll_WriteU32(session_, 0x4, 0xFF), 0);
    EXPECT_EQ(asserted(0xFFFFFFFF), 0x301u) << "Status raises nothing";
}

TEST_F(DescribedTarget, ToHostFifoFollowsItsPatternAndRaisesItsInterrupt) {
    EXPECT_EQ(asserted(1u << 4), 0u);
    std::vector<int16_t> data(100);
    ASSERT_EQ(BrennDll_ReadFifoI16(session_, 0, data.data(), data.size(), 1000, nullptr), 0);
    for (size_t i = 0; i < data.size(); ++i) ASSERT_EQ(data[i], static_cast<int16_t>(5 + 3 * i)) << i;
    EXPECT_EQ(asserted(1u << 4), 1u << 4) << "the FPGA side moved 64 elements and more";
    ASSERT_EQ(BrennDll_AcknowledgeIrqs(session_, 1u << 4), 0);
    ASSERT_EQ(BrennDll_ReadFifoI16(session_, 0, data.data(), 40, 1000, nullptr), 0);
    EXPECT_EQ(asserted(1u << 4), 1u << 4) << "refilling passed element 192";
}

TEST_F(DescribedTarget, FifosRefuseOtherTypesDirectionsAndNumbers) {
    uint16_t u16[4] = {};
    int16_t i16[4] = {};
    uint32_t u32[4] = {};
    size_t acquired = 0;
    uint32_t* region = nullptr;
    EXPECT_EQ(BrennDll_ReadFifoU16(session_, 0, u16, 4, 0, nullptr), kBrennSimInvalidArgument) << "same size";
    EXPECT_EQ(BrennDll_WriteFifoI16(session_, 0, i16, 4, 0, nullptr), kBrennSimInvalidArgument);
    EXPECT_EQ(BrennDll_ReadFifoComposite(session_, 0, u32, 4, 1, 0, nullptr), kBrennSimInvalidArgument);
    EXPECT_EQ(BrennDll_ReadFifoComposite(session_, 0, i16, 2, 4, 0, nullptr), 0) << "a composite of the size";
    EXPECT_EQ(BrennDll_AcquireFifoReadElementsU32(session_, 1, &region, 4, 0, &acquired, nullptr),
              kBrennSimInvalidArgument);
    EXPECT_EQ(BrennDll_ReadFifoU32(session_, 7, u32, 4, 0, nullptr), kBrennSimInvalidArgument) << "undeclared";
    EXPECT_EQ(BrennDll_ConfigureFifo(session_, 7, 16), kBrennSimInvalidArgument);
}

TEST_F(DescribedTarget, ToTargetFifoChecksItsPattern) {
    std::vector<uint32_t> data(40, 0xCAFE);
    ASSERT_EQ(BrennDll_WriteFifoU32(session_, 1, data.data(), data.size(), 1000, nullptr), 0);
    data[3] = 0xCAFF;
    ASSERT_EQ(BrennDll_WriteFifoU32(session_, 1, data.data(), 10, 1000, nullptr), 0);
    BrennSimFifoStats stats{};
    ASSERT_EQ(BrennSim_GetFifoStats(session_, 1, &stats), 1);
    EXPECT_EQ(stats.elementsTransferred, 50u);
    EXPECT_EQ(stats.patternErrors, 1u);
}

TEST_F(DescribedTarget, ARateLimitsWhatTheFpgaSideProduces) {
    uint8_t data[500] = {};
    size_t remaining = 0;
    // 1000 elements per second: half a second's worth is not there at once...
    EXPECT_EQ(BrennDll_ReadFifoU8(session_, 2, data, 500, 0, &remaining), kBrennTimeout);
    EXPECT_LT(remaining, 500u);
    // ...but arrives when the reader waits for it, in order.
    ASSERT_EQ(BrennDll_ReadFifoU8(session_, 2, data, 30, 0xFFFFFFFF, nullptr), 0);
    for (size_t i = 0; i < 30; ++i) ASSERT_EQ(data[i], i);
}

TEST_F(DescribedTarget, SessionsStartWithTheDeclaredResourcesAndOpenOnlyThose) {
    uint32_t indexes[4] = {};
    size_t count = 0;
    ASSERT_EQ(BrennDll_GetSessionIndexes(session_, indexes, 4, &count), 0);
    ASSERT_EQ(count, 2u);
    std::vector<std::string> names;
    for (size_t i = 0; i < count; ++i) {
        const char* name = nullptr;
        ASSERT_EQ(BrennDll_GetResourceName(indexes[i], &name), 0);
        names.emplace_back(name);
    }
    EXPECT_EQ(names, (std::vector<std::string>{"Board0/Analog", "Board0/Digital"}));
    uint32_t resource = 0;
    EXPECT_EQ(BrennDll_OpenResource(session_, "Board0/Serial", 0, &resource), kBrennSimInvalidArgument);
    ASSERT_EQ(BrennDll_OpenResource(session_, "Board0/Digital", 0, &resource), 0);
    uint16_t threshold = 0;
    EXPECT_EQ(BrennDll_ReadU16(resource, 0x8, &threshold), 0) << "the resource session has the board's registers";
    EXPECT_EQ(threshold, 100u);
}

}  // namespace
