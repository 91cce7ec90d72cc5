// Start-up: the option store, the global record, the sockets, the command
// service and the worker task.
#pragma once

#include <cstdint>

constexpr uint32_t PPPOEPLUS_OPT_VALUE_LEN = 63;
constexpr uint32_t PPPOEPLUS_TASK_PRIORITY = 50;
constexpr uint32_t PPPOEPLUS_TASK_STACK = 32768;
constexpr uint32_t PPPOEPLUS_SEM_OPTIONS = 13;
constexpr uint32_t PPPOEPLUS_FUNC_MAP_ROWS = 9;

inline constexpr char PPPOEPLUS_PROCESS_NAME[] = "pppoeplus";
inline constexpr char PPPOEPLUS_TASK_NAME[] = "pppoeplus";
inline constexpr char PPPOEPLUS_POOL_NAME[] = "pppoeplus_if";
inline constexpr char PPPOEPLUS_CMD_SERVICE[] = "pppoeplusCmd";
inline constexpr char PPPOEPLUS_CMD_SOCKET[] = "/tmp/pppoeplusNm.socket";

// Reads the start-up options and starts the daemon. 0, or -1 when an option
// is refused or start-up fails.
uint32_t pppoeplusOptInit(void);

// Builds the global record, opens the sockets, publishes the management
// entry points and starts the worker task. 0 on success (and at once when
// already started), -1 on failure after cleaning up.
uint32_t pppoeplusInit(uint32_t ifPerSubSys, uint32_t defaultEnable, uint32_t vendorId, uint32_t ponCommonType,
                       uint32_t subSysNum, uint32_t defaultPortEnable, uint32_t ethIfEnable, uint32_t ethAggIfEnable,
                       uint32_t gponIfEnable, uint32_t ponAggIfEnable);

// Creates the interface-entry pool. 0 or the platform's error code.
uint32_t pppoeplusMemoryPoolInit(void);
