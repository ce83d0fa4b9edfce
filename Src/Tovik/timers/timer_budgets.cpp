#include "Tovik/timers/timer_budgets.h"

#include <algorithm>

#include "Tovik/checks/hang_check.h"
#include "Tovik/config/config.h"

namespace {

constexpr int64_t BUDGET_HOUR = 3600;  // seconds

// A peer that is slow must never get the agent killed, only one that is lost. So each figure is beyond what
// the peer can take before an exchange of the agent gives it up; and where nothing bounds the exchange,
// beyond all patience: then an agent that starts anew is worth more than one that waits.
constexpr int64_t MAIL_BUDGET = 12 * BUDGET_HOUR;    // five minutes a reply; each recipient takes one
constexpr int64_t POST_BUDGET = BUDGET_HOUR;         // not bounded unless WEBHOOK_TIMEOUT is set
constexpr int64_t SCRIPT_BUDGET = 24 * BUDGET_HOUR;  // not bounded: it should come back at once
// 10 s to connect, 30 to secure, 30 to reply; what has begun is not bounded.
constexpr int64_t QUERY_BUDGET = BUDGET_HOUR;
constexpr int64_t PROBE_BUDGET = 60;           // 5 s to connect, a second between two snapshots
constexpr int64_t FILES_BUDGET = BUDGET_HOUR;  // a disk that sleeps, a log of many gigabytes

// As a sleep takes a period.
int64_t BudgetedPause(int64_t pausePeriod) {
  return int64_t{static_cast<uint32_t>(pausePeriod)};
}

struct TimerBudget {
  uint32_t timer_id;
  int64_t (*pauses)();  // seconds, all those of a cycle
  int64_t alarms;       // that a cycle may raise, each a mail and a post
  int64_t others;       // the other peers' seconds
};
constexpr TimerBudget TIMER_BUDGETS[] = {
    {10, [] { return 2 * BudgetedPause(m_restart_period); }, 3, SCRIPT_BUDGET + PROBE_BUDGET},
    {3000, [] { return BudgetedPause(HangPause(m_Hang_Time)); }, 1, PROBE_BUDGET},
    {4000, [] { return int64_t{61}; }, 1, FILES_BUDGET},
    {5000, [] { return int64_t{1}; }, 1, FILES_BUDGET},
    {6000, [] { return int64_t{1}; }, 0, FILES_BUDGET},
    {1000, [] { return BudgetedPause(m_restart_period); }, 0, QUERY_BUDGET},
};

}  // namespace

int64_t CycleBudget(uint32_t timer_id, int64_t patience) {
  const auto* const budgetRow =
      std::find_if(std::begin(TIMER_BUDGETS), std::end(TIMER_BUDGETS),
                   [timer_id](const TimerBudget& budget) { return budget.timer_id == timer_id; });
  if (budgetRow == std::end(TIMER_BUDGETS)) return 0;
  const int64_t peersBudget = budgetRow->alarms * (MAIL_BUDGET + POST_BUDGET) + budgetRow->others;
  return budgetRow->pauses() + (patience > 0 ? std::min(patience, peersBudget) : peersBudget);
}
