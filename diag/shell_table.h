// The process shell's table: the diagnostic functions operators call by
// name, and the kind of each of their arguments. main registers it with
// procShellFuncInit; the shell calls nothing else.
#pragma once

#include <cstdint>

#include "platform/services.h"

constexpr uint32_t PPPOEPLUS_SHELL_FUNC_NUM = 12;
extern const tProcShellFunc gPppoeplusShellFuncs[PPPOEPLUS_SHELL_FUNC_NUM];

// pppoeplusIfEntryShow for the shell, which gives an interface unit, never
// an entry's address: shows the entry of `ifUnit`, or prints a line saying
// that it has none and returns ZEL_ERR_NOT_FOUND.
int32_t pppoeplusIfEntryShowByUnit(uint32_t ifUnit);
