// Scenarios for the fault loop: sequences of exports that together reach every export. A
// scenario goes on after a failed step with whatever it has (a handle of 0 after a failed open,
// say), as a Host that ignores errors would, so that a failure's consequences are exercised too;
// it only keeps the Host's rules for closes: each session it got is closed once, and a resource
// session is not closed after its parent's close.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace quorvane::testing {

// What one run of a scenario did: every status with its step, the handles and references it got,
// and the Host arrays it made. The loop closes, deletes and disposes of them afterwards.
class ScenarioRun {
public:
    // Called around every step, with the export's name: the loop notes which step a failure hit.
    std::function<void(const char*)> beforeStep = [](const char*) {};
    std::function<void(const char*)> afterStep = [](const char*) {};

    // Runs one export, notes its status and returns it.
    template <typename Call>
    int32_t step(const char* name, Call&& call) {
        beforeStep(name);
        const int32_t status = call();
        statuses.push_back({name, status});
        afterStep(name);
        return status;
    }
    uint32_t open();                                // Quorvane_Open on the default target
    uint32_t openResource(uint32_t parent);         // Quorvane_OpenResource "RIO0/child"
    uint32_t acquire(uint32_t session, bool read);  // a region of 16 U32 elements, no wait
    uint32_t acquire(uint32_t session, bool read, uint32_t type, uint32_t fifo);
    void close(uint32_t session);                    // once, and only a session it got
    void deleteReference(uint32_t reference);        // as the Host does when it is done
    void** array(int32_t typeCode, size_t count);    // a Host array the loop disposes of
    void** strings(std::vector<const char*> names);  // a Host array of strings, likewise

    struct Noted {
        std::string step;
        int32_t status;
    };
    std::vector<Noted> statuses;
    std::vector<uint32_t> sessions;    // in the order opened: a child after its parent
    std::vector<uint32_t> orphans;     // handles a failed open left behind
    std::vector<uint32_t> references;  // references not deleted yet
    std::vector<void**> arrays;
    std::vector<void**> stringArrays;
};

struct Scenario {
    const char* name;
    std::function<void(ScenarioRun&)> run;
};

const std::vector<Scenario>& allScenarios();

}  // namespace quorvane::testing
