// Simulated OS layer: tasks are recorded, not run; semaphores count takes and
// gives; pools are the real shared pools behind fault injection; options come
// from the test.
#include <cstring>
#include <string>

#include "platform/common/mem_pool.h"
#include "platform/os.h"
#include "platform/sim/sim.h"
#include "platform/types.h"

using sim::g;

int32_t silCreateTask(const char* name, uint32_t priority, uint32_t stackSize, tSilTaskEntry entry, uintptr_t,
                      uintptr_t, uint32_t* taskId) {
    auto f = sim::enter("silCreateTask", "silCreateTask(" + std::string(name ? name : "") + "," +
                                             std::to_string(priority) + "," + std::to_string(stackSize) + ")");
    if (f) return static_cast<int32_t>(*f);
    g.tasks.push_back(sim::Task{name ? name : "", priority, stackSize, entry});
    if (taskId != nullptr) *taskId = static_cast<uint32_t>(g.tasks.size());
    return 0;
}

void silSleep(uint32_t seconds) {
    sim::enter("silSleep", "silSleep(" + std::to_string(seconds) + ")");
    g.sleeps++;
}

uint32_t silCreateMSem(uint32_t options) {
    auto f = sim::enter("silCreateMSem", "silCreateMSem(" + std::to_string(options) + ")");
    if (f) return static_cast<uint32_t>(*f);
    uint32_t id = g.nextSemId++;
    g.sems[id] = sim::Sem{options, true, 0, 0, 0};
    return id;
}

uint32_t silTakeSem(uint32_t semId, int32_t timeout) {
    auto f = sim::enter("silTakeSem", "silTakeSem(" + std::to_string(semId) + "," + std::to_string(timeout) + ")");
    if (f) return static_cast<uint32_t>(*f);
    auto s = g.sems.find(semId);
    if (s == g.sems.end() || !s->second.alive) return static_cast<uint32_t>(ZEL_ERR_NOT_FOUND);
    s->second.depth++;
    s->second.takes++;
    return 0;
}

uint32_t silGiveSem(uint32_t semId) {
    auto f = sim::enter("silGiveSem", "silGiveSem(" + std::to_string(semId) + ")");
    if (f) return static_cast<uint32_t>(*f);
    auto s = g.sems.find(semId);
    if (s == g.sems.end() || !s->second.alive) return static_cast<uint32_t>(ZEL_ERR_NOT_FOUND);
    if (s->second.depth == 0) return static_cast<uint32_t>(ZEL_ERR_GENERAL);  // not held
    s->second.depth--;
    s->second.gives++;
    return 0;
}

uint32_t silDeleteSem(uint32_t semId) {
    auto f = sim::enter("silDeleteSem", "silDeleteSem(" + std::to_string(semId) + ")");
    if (f) return static_cast<uint32_t>(*f);
    auto s = g.sems.find(semId);
    if (s == g.sems.end() || !s->second.alive) return static_cast<uint32_t>(ZEL_ERR_NOT_FOUND);
    s->second.alive = false;
    return 0;
}

static std::string poolName(const tSilMemPool* pool) {
    if (pool == nullptr) return "null";
    return std::string(pool->name, strnlen(pool->name, sizeof(pool->name)));
}

uint32_t silMemPoolInit(tSilMemPool* pool, const char* name, uint32_t count, uint32_t size, uint32_t flags) {
    auto f = sim::enter("silMemPoolInit", "silMemPoolInit(" + std::string(name ? name : "") + "," +
                                              std::to_string(count) + "," + std::to_string(size) + "," +
                                              std::to_string(flags) + ")");
    if (f) return static_cast<uint32_t>(*f);
    return memPoolInit(pool, name, count, size, flags);
}

void* silMemPoolAlloc(tSilMemPool* pool) {
    auto f = sim::enter("silMemPoolAlloc", "silMemPoolAlloc(" + poolName(pool) + ")");
    if (f) return nullptr;
    void* record = memPoolAlloc(pool);
    if (record != nullptr && g.allocFill >= 0) std::memset(record, g.allocFill, pool->size);
    return record;
}

uint32_t silMemPoolFree(tSilMemPool* pool, void* record) {
    auto f = sim::enter("silMemPoolFree", "silMemPoolFree(" + poolName(pool) + ")");
    if (f) return static_cast<uint32_t>(*f);
    return memPoolFree(pool, record);
}

uint32_t silMemPoolDestroy(tSilMemPool* pool) {
    auto f = sim::enter("silMemPoolDestroy", "silMemPoolDestroy(" + poolName(pool) + ")");
    if (f) return static_cast<uint32_t>(*f);
    return memPoolDestroy(pool);
}

void silMemPoolPrint(const tSilMemPool* pool) { memPoolPrint(pool); }

int32_t silOptRead(uint32_t, const char* key, uint32_t, uint32_t, uint32_t asText, char* buf, uint32_t bufLen) {
    std::string k = key ? key : "";
    auto f = sim::enter("silOptRead", "silOptRead(" + k + ")");
    if (f) return static_cast<int32_t>(*f);
    auto o = g.options.find(k);
    if (o == g.options.end() || asText != 1 || buf == nullptr) return 0;
    uint32_t n = o->second.size() < bufLen ? static_cast<uint32_t>(o->second.size()) : bufLen;
    std::memcpy(buf, o->second.data(), n);
    return static_cast<int32_t>(n);
}

void silCatchSegFault(void) {
    sim::enter("silCatchSegFault", "silCatchSegFault()");
    g.segFaultCaught = true;
}
