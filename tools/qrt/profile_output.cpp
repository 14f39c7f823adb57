#include "tools/qrt/profile_output.h"

#include <algorithm>
#include <functional>

#include "tools/qrt/errors.h"
#include "tools/qrt/suggestion.h"
#include "tools/qrt/table.h"
#include "tools/qrt/text.h"

namespace qrt_tool {
namespace {

// Below this share of a pass the difference between both times is that of reading two clocks.
constexpr double kPreempted = 0.02;

/// Kernels that are shown as one line.
struct Group {
  std::string name;
  std::string kernel;
  std::string number;  // of the layer
  std::string output;
  size_t kernels = 0;
  Times times;
  uint64_t bytes = 0;
  uint64_t multiply_adds = 0;

  void add(const ProfileRow& row) {
    ++kernels;
    times += row.times;
    bytes += row.bytes;
    multiply_adds += row.multiply_adds.value_or(0);
  }
  // 2 operations for each multiply-add; per millisecond and 1e6 it is the same as per second and
  // 1e9.
  std::string gflops() const {
    return multiply_adds == 0 ? "" : rate(2.0 * static_cast<double>(multiply_adds));
  }
  std::string gigabytes() const { return bytes == 0 ? "" : rate(static_cast<double>(bytes)); }

 private:
  std::string rate(double count) const {
    return times.cpu_ms > 0 ? decimal(count / times.cpu_ms / 1e6, 1) : "";
  }
};

Group layer_group(const NetworkReport& report, const ProfileRow& row) {
  const LayerReport& layer = report.layers[row.layer];
  Group group;
  group.name = row.role.empty() ? layer.id : layer.id + " " + row.role;
  group.kernel = row.kernel;
  group.number = std::to_string(row.layer);
  if (row.role.empty() && !layer.outputs.empty()) group.output = sizes_text(layer.outputs[0].dims);
  group.add(row);
  return group;
}

std::vector<Group> groups_of(const NetworkReport& report, const Profile& profile, ProfileBy by) {
  std::vector<Group> groups;
  for (const ProfileRow& row : profile.rows) {
    if (by == ProfileBy::layer) {
      groups.push_back(layer_group(report, row));
      continue;
    }
    const std::string name = by == ProfileBy::kernel ? row.kernel
                             : row.role.empty()      ? report.layers[row.layer].kind
                                                     : "converter";
    auto group = std::find_if(groups.begin(), groups.end(),
                              [&](const Group& other) { return other.name == name; });
    if (group == groups.end()) {
      groups.emplace_back();
      group = groups.end() - 1;
      group->name = name;
    }
    group->add(row);
  }
  return groups;
}

std::string millions(uint64_t count) {
  return count == 0 ? "" : decimal(static_cast<double>(count) / 1e6, 3);
}

/// The lines of the table, with the columns that are wanted.
class Lines {
 public:
  Lines(const ProfileView& view, const Times& pass, bool is_preempted)
      : is_layers_(view.by == ProfileBy::layer),
        is_preempted_(is_preempted),
        pass_(pass),
        table_(columns()) {}

  void add(const Group& group) {
    std::vector<std::string> cells;
    if (is_layers_) cells = {group.number, group.name, group.kernel, group.output};
    if (!is_layers_) cells = {group.name, std::to_string(group.kernels)};
    add_times(cells, group.times.cpu_ms, decimal(group.times.wall_ms, 4));
    for (const std::string& cell :
         {millions(group.multiply_adds), group.gflops(), group.gigabytes()}) {
      cells.push_back(cell);
    }
    table_.add(std::move(cells));
  }

  void add_sum(const std::string& name, double cpu_ms, const std::string& wall) {
    std::vector<std::string> cells(is_layers_ ? 4 : 2);
    cells[is_layers_ ? 1 : 0] = name;
    add_times(cells, cpu_ms, wall);
    table_.add(std::move(cells));
  }

  // Time that isn't the pass's has no share of it.
  void add_others(double wall_ms) {
    std::vector<std::string> cells(is_layers_ ? 4 : 2);
    cells[is_layers_ ? 1 : 0] = "other programs";
    cells.insert(cells.end(), {"", "", decimal(wall_ms, 4)});
    table_.add(std::move(cells));
  }

  void add_rule() { table_.add_rule(); }
  std::string text(size_t width) const { return table_.text(width); }

 private:
  std::vector<Column> columns() const {
    std::vector<Column> columns{
        {"#", true}, {"layer", false, true}, {"kernel", false, true}, {"output"}};
    if (!is_layers_) columns = {{"name", false, true}, {"kernels", true}};
    columns.insert(columns.end(), {{"ms", true}, {"share", true}});
    if (is_preempted_) columns.push_back({"wall ms", true});
    columns.insert(columns.end(), {{"M mult-adds", true}, {"GFLOP/s", true}, {"GB/s", true}});
    return columns;
  }

  void add_times(std::vector<std::string>& cells, double cpu_ms, const std::string& wall) const {
    cells.push_back(decimal(cpu_ms, 4));
    cells.push_back(pass_.cpu_ms > 0 ? decimal(100.0 * cpu_ms / pass_.cpu_ms, 1) + " %" : "");
    if (is_preempted_) cells.push_back(wall);
  }

  bool is_layers_;
  bool is_preempted_;
  Times pass_;
  Table table_;
};

template <typename Value>
Value word_of(const char* option, const std::string& word,
              const std::vector<std::pair<std::string, Value>>& words) {
  std::vector<std::string> names;
  for (const auto& [name, value] : words) {
    if (name == word) return value;
    names.push_back(name);
  }
  throw ToolError(kUsageError, std::string(option) + " " + printable(word) + ": expected " +
                                   joined(names, " or ") + did_you_mean(word, names));
}

void add_times(JsonText& json, const Times& times) {
  json.number("cpu_ms", times.cpu_ms);
  json.number("wall_ms", times.wall_ms);
}

}  // namespace

ProfileView parse_profile_view(const std::string& by, const std::string& sort) {
  ProfileView view;
  if (!by.empty()) {
    view.by = word_of<ProfileBy>(
        "--by", by,
        {{"layer", ProfileBy::layer}, {"kind", ProfileBy::kind}, {"kernel", ProfileBy::kernel}});
  }
  view.by_time = view.by != ProfileBy::layer;
  if (!sort.empty()) {
    view.by_time = word_of<bool>("--sort", sort, {{"order", false}, {"time", true}});
  }
  return view;
}

std::string profile_text(const NetworkReport& report, const Profile& profile,
                         const ProfileView& view, size_t width) {
  std::vector<Group> groups = groups_of(report, profile, view.by);
  if (view.by_time) {
    std::stable_sort(groups.begin(), groups.end(), [](const Group& a, const Group& b) {
      return a.times.cpu_ms > b.times.cpu_ms;
    });
  }
  const bool is_preempted = profile.others_ms > kPreempted * profile.pass.wall_ms;
  Lines lines(view, profile.pass, is_preempted);
  Group whole;
  for (const Group& group : groups) {
    lines.add(group);
    whole.multiply_adds += group.multiply_adds;
    whole.bytes += group.bytes;
  }
  lines.add_rule();
  lines.add_sum("between the kernels", profile.between_ms, "");
  if (is_preempted) lines.add_others(profile.others_ms);
  whole.name = "pass";
  whole.times = profile.pass;
  whole.kernels = profile.rows.size();
  lines.add(whole);
  std::string text = lines.text(width);
  if (is_preempted) {
    text +=
        "ms is the processor's time for the pass; for the rest of the time on the wall it worked "
        "for other programs.\n";
  }
  return text;
}

void add_profile(JsonText& json, const NetworkReport& report, const Profile& profile) {
  json.begin_object("profile");
  json.begin_object("pass");
  add_times(json, profile.pass);
  json.end_object();
  json.number("between_kernels_ms", profile.between_ms);
  json.number("other_programs_ms", profile.others_ms);
  json.begin_array("kernels");
  for (const ProfileRow& row : profile.rows) {
    json.begin_object();
    json.integer("layer", row.layer);
    json.text("id", report.layers[row.layer].id);
    json.text("kind", report.layers[row.layer].kind);
    json.text("role", row.role.empty() ? "kernel" : row.role);
    json.text("kernel", row.kernel);
    add_times(json, row.times);
    if (row.multiply_adds) json.integer("multiply_adds", *row.multiply_adds);
    json.integer("bytes", row.bytes);
    json.end_object();
  }
  json.end_array();
  json.begin_array("kinds");
  for (const Group& group : groups_of(report, profile, ProfileBy::kind)) {
    json.begin_object();
    json.text("kind", group.name);
    json.integer("kernels", group.kernels);
    add_times(json, group.times);
    json.integer("multiply_adds", group.multiply_adds);
    json.integer("bytes", group.bytes);
    json.end_object();
  }
  json.end_array();
  json.end_object();
}

}  // namespace qrt_tool
