#include "replay/options_parser.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <fstream>
#include <set>
#include <sstream>
#include <stdexcept>
#include <thread>

#include "host/property_values.h"
#include "plugin/properties.h"
#include "plugin/version.h"
#include "programs/command_line.h"
#include "replay/recordings_to_read.h"
#include "replay/sweep_option.h"

namespace replay {
namespace {

constexpr const char* kDescription =
    R"(Replays recorded page loads through the preloading plugin and shows what it gained.

Every repeat visit of a page runs in six ways in the same model of the network: off (without the plugin), plugin,
hints (everything known is requested at the document's first byte), preconnect (without the plugin, but connections
are opened ahead), reachable (what the best preloader could reach) and oracle (everything known is in memory).)";

constexpr const char* kExamples = R"(Examples:
  kiv_replay shop.har                                 prints the table, for the 4g profile
  kiv_replay --profile 3g --html report.html *.har    also writes the waterfalls of every visit
  kiv_replay --json - *.har | jq .gap_closed          prints one JSON object per recording
  kiv_replay --prop net.cv.kiv.prlimit=8 --log 4 shop.har
  kiv_replay --sweep prlimit=1..8 shop.har            the same visits with eight limits, side by side
  kiv_replay --fail-if 'slower_visits > 0' recordings/  for a CI job
  kiv_replay merge --html all.html results/*.jsonl    makes one report of results written with --json

If a report goes to standard output, the table and the log go to standard error.
Exit status: 0 on success, 1 after a fault of the plugin or the program, 2 after bad input, 3 if a --fail-if
condition holds.)";

// The values as they were given. A function below reads each of them, so that all errors look alike.
struct Texts {
  std::string profile = "4g";
  std::string rtt, down;
  std::string sockets = "6";
  std::string visits = "3";
  std::string revisitAfter = "1h";
  std::string join = "on";
  std::string preconnect = "on";
  std::string parents = "best";
  std::string certificates = "on", dns = "on", slowStart = "on";
  std::string log;
  std::string jobs;
  std::vector<std::string> properties;
  std::string propertiesFile;
  std::string beaconsFile;
  std::string defaultRecording;
  std::string sweep;
};

[[noreturn]] void Refuse(const std::string& place, const std::string& what) {
  throw std::runtime_error(place + ": " + what);
}

[[noreturn]] void RefuseValue(const char* option, const std::string& mustBe, const std::string& text) {
  throw std::runtime_error(fmt::format("{} must be {}, got '{}'", option, mustBe, text));
}

// Returns nothing unless the whole text is one decimal number.
template <typename Number>
std::optional<Number> WholeNumber(std::string_view text) {
  Number value{};
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
  return value;
}

unsigned Count(const char* option, const std::string& text, unsigned least, unsigned most) {
  const auto value = WholeNumber<unsigned>(text);
  if (!value || *value < least || *value > most) {
    RefuseValue(option, fmt::format("a whole number from {} to {}", least, most), text);
  }
  return *value;
}

double Figure(const char* option, const std::string& text, const char* unit, double least, double most) {
  const auto value = WholeNumber<double>(text);
  if (!value || !(*value >= least && *value <= most)) {
    RefuseValue(option, fmt::format("a number of {} from {} to {}", unit, least, most), text);
  }
  return *value;
}

double Duration(const char* option, const std::string& text) {
  const size_t split = std::min(text.find_first_not_of("0123456789."), text.size());
  const auto value = WholeNumber<double>(std::string_view(text).substr(0, split));
  const std::string unit = text.substr(split);
  const double factor = unit == "ms"  ? 1
                        : unit == "s" ? 1e3
                        : unit == "m" ? 60e3
                        : unit == "h" ? 3600e3
                        : unit == "d" ? 86400e3
                                      : 0;
  constexpr double kTenYears = 3650 * 86400e3;
  if (!value || factor == 0 || *value * factor > kTenYears) {
    RefuseValue(option, "a duration of at most ten years, such as 500ms, 90s, 30m, 1h or 2d", text);
  }
  return *value * factor;
}

std::string ProfileNames() {
  std::vector<std::string_view> names;
  for (const NetworkProfile& profile : kNetworkProfiles) names.push_back(profile.name);
  return fmt::format("{}", fmt::join(names, ", "));
}

// "3g (1.6 Mbit/s, 300 ms), 4g (9, 170), ..., native (as recorded)"
std::string ProfilesText() {
  std::vector<std::string> texts;
  for (const NetworkProfile& profile : kNetworkProfiles) {
    const char* const form = texts.empty() ? "{} ({} Mbit/s, {} ms)" : "{} ({}, {})";
    texts.push_back(profile.rttMs
                        ? fmt::format(fmt::runtime(form), profile.name, *profile.downMbit, *profile.rttMs)
                        : fmt::format("{} (as recorded)", profile.name));
  }
  return fmt::format("{}", fmt::join(texts, ", "));
}

NetworkProfile Profile(const Texts& texts) {
  const NetworkProfile* const found = FindNetworkProfile(texts.profile);
  if (found == nullptr) RefuseValue("--profile", "one of " + ProfileNames(), texts.profile);
  NetworkProfile profile = *found;
  if (!texts.rtt.empty()) profile.rttMs = Figure("--rtt", texts.rtt, "milliseconds", 0, 60000);
  if (!texts.down.empty()) profile.downMbit = Figure("--down", texts.down, "Mbit/s", 0.001, 100000);
  if (!texts.rtt.empty() || !texts.down.empty()) profile.name = "custom";
  return profile;
}

void AddProperty(const std::string& place, const std::string& text,
                 std::map<std::string, std::string>& properties) {
  try {
    const auto [name, value] = host::ParsePropertySetting(text);
    properties[name] = value;
  } catch (const std::runtime_error& error) {
    Refuse(place, error.what());
  }
}

std::string Trimmed(const std::string& text) {
  constexpr const char* kSpaces = " \t\r";
  const size_t first = text.find_first_not_of(kSpaces);
  return first == std::string::npos ? "" : text.substr(first, text.find_last_not_of(kSpaces) - first + 1);
}

void AddPropertiesOf(const std::string& path, std::map<std::string, std::string>& properties) {
  std::ifstream file(path);
  std::string line;
  for (size_t number = 1; std::getline(file, line); ++number) {
    line = Trimmed(line);
    if (line.empty() || line[0] == '#') continue;
    AddProperty(fmt::format("--props: {}:{}", path, number), line, properties);
  }
  if (!file.eof() || file.bad()) Refuse("--props", path + ": cannot be read");
}

std::string WholeFile(const char* option, const std::string& path) {
  std::ifstream file(path);
  std::ostringstream text;
  if (!file || !(text << file.rdbuf())) Refuse(option, path + ": cannot be read, or is empty");
  return text.str();
}

bool OnOrOff(const char* option, const std::string& text) {
  if (text != "on" && text != "off") RefuseValue(option, "on or off", text);
  return text == "on";
}

std::optional<ParentRule> Parents(const std::string& text) {
  if (text == "best") return std::nullopt;
  if (text == "recorded") return ParentRule::Recorded;
  if (text == "inferred") return ParentRule::Inferred;
  RefuseValue("--parents", "best, recorded or inferred", text);
}

// What the files say that the options name. They are read once: a file may be a pipe.
ReplayOptions OptionsOfFiles(const Texts& texts) {
  ReplayOptions options;
  if (!texts.propertiesFile.empty()) AddPropertiesOf(texts.propertiesFile, options.properties);
  if (!texts.beaconsFile.empty())
    options.beacons = ParseBeaconList(WholeFile("--beacons", texts.beaconsFile));
  return options;
}

// With all the others.
ReplayOptions Replay(const Texts& texts, ReplayOptions options) {
  options.profile = Profile(texts);
  options.socketsPerGroup = static_cast<int>(Count("--sockets", texts.sockets, 1, 1000));
  options.visits = Count("--visits", texts.visits, 1, 1000);
  options.revisitAfterMs = Duration("--revisit-after", texts.revisitAfter);
  options.join = OnOrOff("--join", texts.join);
  options.preconnect = OnOrOff("--preconnect", texts.preconnect);
  options.parents = Parents(texts.parents);
  options.costs.certificates = OnOrOff("--certificates", texts.certificates);
  options.costs.nameLookups = OnOrOff("--dns", texts.dns);
  options.costs.slowStart = OnOrOff("--slow-start", texts.slowStart);
  if (!texts.log.empty()) options.logLevel = static_cast<int>(Count("--log", texts.log, 0, 9));
  for (const std::string& property : texts.properties) AddProperty("--prop", property, options.properties);
  return options;
}

// The options that can be swept, beside the plugin's properties.
struct Sweepable {
  const char* name;
  std::string Texts::*text;
};
constexpr std::array kSweepable = {Sweepable{"profile", &Texts::profile},
                                   Sweepable{"rtt", &Texts::rtt},
                                   Sweepable{"down", &Texts::down},
                                   Sweepable{"sockets", &Texts::sockets},
                                   Sweepable{"revisit-after", &Texts::revisitAfter},
                                   Sweepable{"join", &Texts::join},
                                   Sweepable{"preconnect", &Texts::preconnect},
                                   Sweepable{"parents", &Texts::parents},
                                   Sweepable{"certificates", &Texts::certificates},
                                   Sweepable{"dns", &Texts::dns},
                                   Sweepable{"slow-start", &Texts::slowStart}};
constexpr std::string_view kPropertyPrefix = "net.cv.kiv.";

[[noreturn]] void RefuseSwept(const std::string& name) {
  std::vector<std::string_view> names;
  for (const Sweepable& sweepable : kSweepable) names.push_back(sweepable.name);
  for (const kiv::Property& property : kiv::property::kAll) {
    names.push_back(std::string_view(property.name).substr(kPropertyPrefix.size()));
  }
  Refuse("--sweep", fmt::format("'{}' cannot be swept; these can: {}", name, fmt::join(names, ", ")));
}

// The texts with one value of the sweep in its place.
Texts WithValue(Texts texts, const std::string& name, const std::string& value) {
  for (const Sweepable& sweepable : kSweepable) {
    if (name != sweepable.name) continue;
    texts.*sweepable.text = value;
    return texts;
  }
  for (const kiv::Property& property : kiv::property::kAll) {
    if (name != property.name && kPropertyPrefix.data() + name != property.name) continue;
    texts.properties.push_back(std::string(property.name) + "=" + value);
    return texts;
  }
  RefuseSwept(name);
}

Settings SettingsOf(const Texts& texts) {
  const ReplayOptions ofFiles = OptionsOfFiles(texts);
  if (texts.sweep.empty()) return {{.options = Replay(texts, ofFiles)}};
  Settings settings;
  try {
    const SweepRequest sweep = ParseSweep(texts.sweep);
    for (const std::string& value : sweep.values) {
      settings.push_back({.text = sweep.name + "=" + value,
                          .options = Replay(WithValue(texts, sweep.name, value), ofFiles)});
    }
  } catch (const std::runtime_error& error) {
    const std::string what = error.what();
    for (const std::string_view place : {"--sweep: ", "--prop: "}) {
      if (what.starts_with(place)) Refuse("--sweep", what.substr(place.size()));
    }
    Refuse("--sweep", what);
  }
  return settings;
}

// A sweep shows figures alone, and its values are those of the option.
void CheckSweep(const CLI::App& app, bool advise, const Texts& texts, const std::vector<std::string>& paths) {
  if (texts.sweep.empty()) return;
  const std::string option = "--" + texts.sweep.substr(0, texts.sweep.find('='));
  for (const CLI::Option* given : app.get_options()) {
    if (given->count() > 0 && given->get_name() == option) {
      Refuse("--sweep", option + " is given as well; leave it out");
    }
  }
  if (advise) Refuse("--advice", "is about one setting; it cannot be given with --sweep");
  if (!texts.log.empty()) Refuse("--log", "cannot be told apart for the settings of --sweep");
  for (size_t index = 0; index < paths.size(); ++index) {
    if (paths[index].empty() || !ReportFormats()[index]->oneSetting) continue;
    Refuse(ReportFormats()[index]->option, "holds the loads of one setting; it cannot be made with --sweep");
  }
}

// An option whose value was forgotten takes the next option as its value.
void CheckValue(const std::string& option, const std::string& value) {
  if (value.starts_with("--")) Refuse(option, fmt::format("needs a value, got the option '{}'", value));
}

// A merge accepts only options that choose outputs. All other settings were fixed when the lines were
// written.
void CheckMerge(const CLI::App& app, const std::vector<std::string>& paths) {
  const std::set<std::string> allowed = {"RECORDING", "--fail-if", "--force"};
  for (const CLI::Option* option : app.get_options()) {
    const bool isOutput =
        std::any_of(ReportFormats().begin(), ReportFormats().end(),
                    [option](const ReportFormat* format) { return format->option == option->get_name(); });
    if (option->count() > 0 && !isOutput && !allowed.contains(option->get_name())) {
      Refuse(option->get_name(), "cannot be used with merge: it was chosen when the JSON lines were written");
    }
  }
  for (size_t index = 0; index < paths.size(); ++index) {
    if (paths[index].empty() || !ReportFormats()[index]->needsReplay) continue;
    Refuse(ReportFormats()[index]->option,
           "cannot be written by merge, because JSON lines do not contain the page loads");
  }
}

}  // namespace

std::optional<CommandLine> ParseCommandLine(const std::vector<std::string>& arguments, std::ostream& out) {
  CommandLine line;
  Texts texts;
  CLI::App app(kDescription, "kiv_replay");
  app.footer(kExamples);
  app.set_version_flag("--version", "kiv_replay " KIV_VERSION);
  app.get_formatter()->column_width(32);
  const auto text = [&app](const char* name, std::string& value, const char* what, const char* unit) {
    return app.add_option(name, value, what)->type_name(unit)->group("Options");
  };
  app.add_option("RECORDING", line.recordings,
                 "HAR files (may be compressed with gzip or zstd), folders of them, @FILE for a list, - for "
                 "standard input")
      ->type_name("");
  text("--default", texts.defaultRecording, "the recording to replay if no RECORDING is given", "FILE");
  text("--plugin", line.pluginPath, "the plugin to load [libkiv_proc_plugin.so of the build]", "PATH");
  app.add_option("--prop", texts.properties, "set a system property; may be repeated")
      ->type_name("NAME=VALUE")
      ->allow_extra_args(false);
  text("--props", texts.propertiesFile,
       "set the properties in FILE, which has lines name=value and comments after #", "FILE");
  const std::string profiles = ProfilesText();
  text("--profile", texts.profile, profiles.c_str(), "NAME")->capture_default_str();
  text("--rtt", texts.rtt, "round trip time, instead of the profile's", "MS");
  text("--down", texts.down, "bandwidth, instead of the profile's", "MBIT");
  text("--sockets", texts.sockets, "connections per host over HTTP/1.1", "N")->capture_default_str();
  text("--visits", texts.visits, "how often to load each page of a recording that loads no page twice", "N")
      ->capture_default_str();
  text("--revisit-after", texts.revisitAfter, "time between visits: 500ms, 90s, 30m, 1h, 2d", "TIME")
      ->capture_default_str();
  text("--join", texts.join,
       "on: a request waits for its running preload; off: the resource is fetched twice", "on|off")
      ->capture_default_str();
  text("--preconnect", texts.preconnect, "on: connections are opened before the page asks for them", "on|off")
      ->capture_default_str();
  text("--parents", texts.parents,
       "what late requests wait for: the recorded initiator, the request that ended just before, or "
       "whichever of "
       "the two predicts another load of the page better",
       "best|recorded|inferred")
      ->capture_default_str();
  text("--certificates", texts.certificates, "on: a TLS handshake transfers certificates over the link",
       "on|off")
      ->capture_default_str();
  text("--dns", texts.dns, "on: the first connection to a host name waits for a DNS lookup", "on|off")
      ->capture_default_str();
  text("--slow-start", texts.slowStart, "on: connections start with a small congestion window", "on|off")
      ->capture_default_str();
  text("--beacons", texts.beaconsFile, "the list of beacons to use instead of replay/model/beacons.txt",
       "FILE");
  text("--sweep", texts.sweep,
       "replay everything under each of several values of an option or a property, and compare them: "
       "prlimit=1..8, profile=3g,4g, revisit-after=10m,1h,1d",
       "NAME=VALUES");
  app.add_flag("--advice", line.advise,
               "replay each recording again with changes that the reasons suggest, and show what they save");
  text("--log", texts.log,
       "print the plugin's log: 0 for warnings and errors, 3 to add infos, 4 to add debug lines", "LEVEL");
  std::vector<std::string> paths(ReportFormats().size()), failConditions;
  for (size_t index = 0; index < paths.size(); ++index) {
    text(ReportFormats()[index]->option, paths[index], ReportFormats()[index]->what, "FILE");
  }
  app.add_option("--fail-if", failConditions,
                 "exit with status 3 if the condition holds, which compares a key of the JSON summary with a "
                 "number; may be repeated")
      ->type_name("CONDITION")
      ->allow_extra_args(false);
  app.add_flag("--force", line.force, "let a report replace a file that is not a report");
  text("--jobs", texts.jobs, "how many recordings to replay at the same time [number of cores]", "N");

  line.merge = !arguments.empty() && arguments.front() == "merge";
  const std::vector<std::string> words(arguments.begin() + (line.merge ? 1 : 0), arguments.end());
  if (!programs::ParseArguments(app, words, out)) return std::nullopt;
  line.visitsGiven = app.count("--visits") > 0;
  for (const CLI::Option* option : app.get_options()) {
    for (const std::string& value : option->results()) CheckValue(option->get_name(), value);
  }
  if (line.merge) CheckMerge(app, paths);
  CheckSweep(app, line.advise, texts, paths);
  if (line.recordings.empty() && !texts.defaultRecording.empty()) line.recordings = {texts.defaultRecording};
  if (line.recordings.empty()) Refuse("RECORDING", "at least one is needed (see --help)");
  for (const std::string& condition : failConditions) {
    try {
      line.failConditions.push_back(ParseFailCondition(condition));
      if (line.failConditions.back().needsSweep && texts.sweep.empty() && !line.merge) {
        throw std::runtime_error("'" + condition + "': compares settings, so it needs --sweep");
      }
    } catch (const std::runtime_error& error) {
      Refuse("--fail-if", error.what());
    }
  }
  RecordingsToRead found = FindRecordings(line.recordings);
  line.recordings = std::move(found.recordings);
  line.settingsPaths = std::move(found.lists);
  for (size_t index = 0; index < paths.size(); ++index) {
    if (!paths[index].empty()) line.outputs.push_back({ReportFormats()[index], paths[index]});
  }
  line.settings = SettingsOf(texts);
  for (const std::string& path : {texts.propertiesFile, texts.beaconsFile}) {
    if (!path.empty()) line.settingsPaths.push_back(path);
  }
  line.jobs = texts.jobs.empty() ? std::max(1U, std::thread::hardware_concurrency())
                                 : Count("--jobs", texts.jobs, 1, 1024);
  return line;
}

}  // namespace replay
