#include "Tovik/checks/threshold_check.h"

#include <string>

#include "DIOSVC/alarm_codes.h"
#include "DIOSVC/report_types.h"
#include "Tovik/checks/channel_check.h"
#include "Tovik/config/config.h"
#include "Tovik/findings/findings.h"
#include "Tovik/reports/report_request.h"
#include "Tovik/reports/report_senders.h"
#include "Tovik/trace.h"
#include "sysinfo/resource_usage.h"

namespace {

constexpr int32_t NO_CPU_FIGURE = -999;  // no figure: the CPU is neither reported nor checked

// Returns true when the engine's true share of the host's memory, put into *share, reaches MEM_OVER_PERCENT.
bool ShareReachesThreshold(int pid, int64_t host_kb, int* memoryShare) {
  if (m_mem_over_percent == 0) return false;
  *memoryShare = MemoryThresholdShare(process_memory_kb(pid), host_kb);
  const auto shareThreshold = static_cast<int>(m_mem_over_percent);
  TRACE(TRACE_INFO, "System Memory Share [ %d ] Config Memory Share [ %d ]", *memoryShare, shareThreshold);
  return *memoryShare >= shareThreshold;
}

void CheckMemory(const char* name, int pid) {
  const int engineMemoryMb = process_memory_usage(pid);
  const auto hostMemoryKb = static_cast<int64_t>(system_memory_usage());
  int32_t memoryFigure = MemoryThresholdFigure(engineMemoryMb, hostMemoryKb);
  auto memoryThreshold = static_cast<int>(gSendInfo->mem_over_value);
  gMemUsage = memoryFigure;
  TRACE(TRACE_INFO, "System Memory [ %d ] Config Memory [ %d ]", memoryFigure, memoryThreshold);
  const bool figureOverThreshold = memoryFigure >= gSendInfo->mem_over_value;
  int memoryShare = 0;
  const bool shareOverThreshold = ShareReachesThreshold(pid, hostMemoryKb, &memoryShare);
  if (!figureOverThreshold && !shareOverThreshold) return;
  TRACE(TRACE_INFO, "Memory Over");
  // There is one alarm even when both are over. It then names the share, the figure that people know.
  if (shareOverThreshold) {
    memoryFigure = memoryShare;
    memoryThreshold = static_cast<int>(m_mem_over_percent);
  }
  const std::string thresholdMessage = OverMessage(name, "Memory", memoryFigure, memoryThreshold);
  Raise({Finding::MEMORY_OVER, name, thresholdMessage.c_str()});
}

void CheckCpu(const char* name) {
  const int32_t cpuFigure = system_cpu_usage();
  const auto cpuThreshold = static_cast<int>(gSendInfo->cpu_over_value);
  gCpuUsage = cpuFigure;
  TRACE(TRACE_INFO, "System CPU [ %d ] Config CPU [ %d ]", cpuFigure, cpuThreshold);
  if (cpuFigure == NO_CPU_FIGURE) return;
  send_request(REPORT_RESOURCE_USAGE, CODE_RESOURCE_USAGE);
  if (cpuFigure < gSendInfo->cpu_over_value) return;
  TRACE(TRACE_INFO, "CPU Over");
  const std::string thresholdMessage = OverMessage(name, "CPU", cpuFigure, cpuThreshold);
  Raise({Finding::CPU_OVER, name, thresholdMessage.c_str()});
}

}  // namespace

void CheckThresholds(const char* name, int pid) {
  CheckChannels(name);
  CheckMemory(name, pid);
  CheckCpu(name);
}

int MemoryThresholdShare(int64_t engine_kb, int64_t host_kb) {
  return engine_kb > 0 && host_kb > 0 ? static_cast<int>(engine_kb * 100 / host_kb) : 0;
}

int32_t MemoryThresholdFigure(int engine_mb, int64_t host_kb) {
  const float thresholdFigure = static_cast<float>(engine_mb) / static_cast<float>(host_kb) * 100.0F;
  const bool figureFits = thresholdFigure > -2147483648.0F && thresholdFigure < 2147483648.0F;
  return figureFits ? static_cast<int32_t>(thresholdFigure) : INT32_MIN;
}
