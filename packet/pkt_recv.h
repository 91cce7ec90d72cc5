// The receive path: one trapped discovery frame per call.
#pragma once

#include <cstdint>

constexpr uint32_t PPPOEPLUS_PKT_BUF_LEN = 1400;
constexpr uint32_t PPPOEPLUS_PKT_CTRL_LEN = 128;

// Reads at most one frame from the packet socket and handles it.
void pppoeplusPktRecv(void);
