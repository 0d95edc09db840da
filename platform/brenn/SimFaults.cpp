#include "SimFaults.h"

#include <algorithm>
#include <cstring>
#include <iterator>

#include "BrennDll.h"
#include "BrennSim.h"
#include "SimTarget.h"

namespace brenn::sim {

namespace {

constexpr FaultScope kNone = FaultScope::Session;
constexpr FaultScope kFifo = FaultScope::Fifo;
constexpr FaultScope kRegister = FaultScope::Register;

// The typed FIFO functions, four per element type, in the order BRENN_FOR_EACH_ELEMENT_TYPE
// gives them.
#define BRENN_FAULTABLE_FIFO_FUNCTIONS(T, t)                                                                           \
    {"BrennDll_ReadFifo" #T, kFifo}, {"BrennDll_WriteFifo" #T, kFifo}, {"BrennDll_AcquireFifoReadElements" #T, kFifo}, \
        {"BrennDll_AcquireFifoWriteElements" #T, kFifo},

// Every BrennDll_ function whose first argument is a session.
constexpr FaultableFunction kFaultable[] = {{"BrennDll_OpenResource", kNone},
                                            {"BrennDll_Close", kNone},
                                            {"BrennDll_ReserveIrqContext", kNone},
                                            {"BrennDll_Reset", kNone},
                                            {"BrennDll_Download", kNone},
                                            {"BrennDll_Run", kNone},
                                            {"BrennDll_Abort", kNone},
                                            {"BrennDll_ReadU16", kRegister},
                                            {"BrennDll_ReadU32", kRegister},
                                            {"BrennDll_ReadU64", kRegister},
                                            {"BrennDll_WriteU16", kRegister},
                                            {"BrennDll_WriteU32", kRegister},
                                            {"BrennDll_WriteU64", kRegister},
                                            {"BrennDll_ReadArrayU32", kRegister},
                                            {"BrennDll_WriteArrayU32", kRegister},
                                            {"BrennDll_WaitOnIrqs", kNone},
                                            {"BrennDll_AcknowledgeIrqs", kNone},
                                            {"BrennDll_ConfigureFifo", kFifo},
                                            {"BrennDll_ConfigureFifo2", kFifo},
                                            {"BrennDll_StartFifo", kFifo},
                                            {"BrennDll_StopFifo", kFifo},
                                            {"BrennDll_ReadFifoComposite", kFifo},
                                            {"BrennDll_WriteFifoComposite", kFifo},
                                            {"BrennDll_ReleaseFifoElements", kFifo},
                                            {"BrennDll_GetSessionIndexes", kNone},
                                            {"BrennDll_AddResources", kNone},
                                            {"BrennDll_GetPeerToPeerFifoEndpoint", kFifo},
                                            BRENN_FOR_EACH_ELEMENT_TYPE(BRENN_FAULTABLE_FIFO_FUNCTIONS)};

#undef BRENN_FAULTABLE_FIFO_FUNCTIONS

constexpr std::string_view kSessionless[] = {"BrennDll_Open", "BrennDll_GetResourceName", "BrennDll_GetResourceIndex",
                                             "BrennDll_ReleaseResourceIndex"};

// How many entries of kFaultable come before the typed FIFO functions.
constexpr size_t kUntyped = 27;
static_assert(kFaultable[kUntyped - 1].name == "BrennDll_GetPeerToPeerFifoEndpoint");
static_assert(std::size(kFaultable) == kUntyped + 4 * 8);

// Whether a call's second argument is the one the fault counts.
bool inScope(const FaultSpec& fault, const CallArgs& arguments) {
    if (fault.scope == FaultScope::Session) return true;
    return arguments.count > 1 && arguments.values[1] == fault.number;
}

}  // namespace

const FaultableFunction* findFaultable(std::string_view name) noexcept {
    for (const FaultableFunction& function : kFaultable) {
        if (function.name == name) return &function;
    }
    return nullptr;
}

bool takesNoSession(std::string_view name) noexcept {
    return std::find(std::begin(kSessionless), std::end(kSessionless), name) != std::end(kSessionless);
}

std::string faultableNames() {
    std::string names;
    for (size_t i = 0; i < kUntyped; ++i) names += std::string(kFaultable[i].name) + " ";
    return names +
           "BrennDll_ReadFifo<T> BrennDll_WriteFifo<T> BrennDll_AcquireFifoReadElements<T> "
           "BrennDll_AcquireFifoWriteElements<T>, <T> one of I8 I16 I32 I64 U8 U16 U32 U64";
}

InjectedAnswer injectFault(const char* function, const CallArgs& arguments) {
    if (arguments.count == 0) return {};
    const auto session = static_cast<uint32_t>(arguments.values[0]);
    return Target::instance().withState([&](TargetState& state) {
        InjectedAnswer answer;
        Session* open = state.find(session);
        if (!open || open->target->faults.empty()) return answer;
        const std::vector<FaultSpec>& faults = open->target->faults;
        for (size_t i = 0; i < faults.size(); ++i) {
            const FaultSpec& fault = faults[i];
            if (fault.function != function || !inScope(fault, arguments)) continue;
            const uint64_t call = ++open->faultCalls[i];  // 1 for the first counted call
            const bool due = call > fault.after && (fault.times == 0 || call - fault.after <= fault.times);
            if (!due || answer.status != 0) continue;  // counted; an earlier statement answers
            answer = {fault.status, fault.status < 0};
            open->injections->acted(fault.statement);
        }
        return answer;
    });
}

}  // namespace brenn::sim

using namespace brenn::sim;

extern "C" size_t BrennSim_DescribeFaults(uint32_t session, BrennSimFaultInfo* infos, size_t capacity) {
    if (!infos) capacity = 0;
    try {
        return Target::instance().withState([&](TargetState& state) {
            Session* open = state.find(session);
            if (!open) return size_t{0};
            const std::vector<InjectedStatement>& statements = open->target->injected;
            for (size_t i = 0; i < std::min(capacity, statements.size()); ++i) {
                BrennSimFaultInfo info{};
                info.line = statements[i].line;
                info.status = statements[i].status;
                info.acted = open->injections->count(i);
                std::strncpy(info.function, statements[i].function.c_str(), sizeof info.function - 1);
                std::strncpy(info.statement, statements[i].text.c_str(), sizeof info.statement - 1);
                infos[i] = info;
            }
            return statements.size();
        });
    } catch (...) {
        return 0;
    }
}
