// The output forms of `status`.
#ifndef CTL_STATUS_FORMS_H
#define CTL_STATUS_FORMS_H

#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "ctl/status_picture.h"
#include "ctl/status_rules.h"

namespace ctl {

using Findings = std::vector<StatusFinding>;

// For people: the verdict, an empty line, a row for each thing looked at.
std::string StatusWords(const Picture& seen, const Findings& findings);
// One object, see JsonObject().
std::string StatusJson(const Picture& seen, const Findings& findings);
// One line for a monitoring system, with its performance data.
std::string StatusPlugin(const Picture& seen, const Findings& findings);
// A page of metrics in the Prometheus text format.
std::string StatusMetrics(const Picture& seen, const Findings& findings);

// A metric of that page. The set is closed, as dashboards and rules depend on it.
struct MetricRow {
  const char* name;
  const char* type;  // gauge or counter
  const char* help;
};
std::span<const MetricRow> MetricRows();

}  // namespace ctl

#endif
