// The `iam` command line: parses the subcommand and its options, then hands over to the
// subcommand's run function. Usage errors exit 2; nothing escapes as an exception.

#include <CLI/CLI.hpp>
#include <signal.h>

#include <algorithm>
#include <exception>
#include <iostream>
#include <string>
#include <vector>

#include "tools/iam/Commands.h"
#include "tools/refservice/ReferenceMarketingService.h"

namespace {

constexpr const char* kDescription =
    "iam: work with in-app marketing campaigns outside an app: serve them, check them, play a user's "
    "journey against them, and read what an app kept.";

int run(int argc, char** argv) {
  CLI::App app{kDescription, "iam"};
  app.require_subcommand(1);
  app.footer("Run 'iam SUBCOMMAND --help' for a subcommand's options.");

  iam::tool::ServeOptions serve;
  auto* serveCommand = app.add_subcommand(
      "serve", "Answer the app's service requests from campaign files on 127.0.0.1 until Ctrl-C.");
  serveCommand->footer("Prints the base URL first, then one line per answered request: method, path, status, "
                       "entity tag.");
  serveCommand->add_option("--campaign", serve.campaign, "advertisements answer (JSON) to serve")->required();
  serveCommand->add_option("--ranked", serve.ranked, "native quality network answer (JSON) to serve");
  serveCommand->add_option("--port", serve.port, "port to listen on; 0 picks a free one and prints it")
      ->default_val(8080)
      ->check(CLI::Range(0, 65535));
  std::vector<std::string> faultNames;
  std::string faultHelp = "\n\nFaults (--fault MODE), to see how an app copes:";
  for (const auto& mode : iam::ReferenceMarketingService::faultModes()) {
    faultNames.emplace_back(mode.name);
    std::string name(mode.name);
    name.resize(std::max<std::size_t>(name.size() + 1, 14), ' ');
    faultHelp += "\n  " + name + std::string(mode.description);
  }
  serveCommand->footer(std::string(serveCommand->get_footer()) + faultHelp);
  serveCommand->add_option("--fault", serve.fault, "misbehave on purpose from the start (modes below)")
      ->check(CLI::IsMember(faultNames));

  iam::tool::LintOptions lint;
  auto* lintCommand = app.add_subcommand(
      "lint", "Say which advertisements of an answer are kept, dropped or can never show, and why.");
  lintCommand->footer("Exit status: 0 everything kept, 1 something dropped, 2 not a readable answer.");
  lintCommand->add_option("FILE", lint.file, "the answer to check")->required();
  lintCommand->add_flag("--ranked", lint.ranked, "the file is a native quality network answer (ranked apps)");

  iam::tool::SimulateOptions simulate;
  auto* simulateCommand = app.add_subcommand(
      "simulate", "Play a user journey against a campaign on a virtual clock and print every decision.");
  simulateCommand->footer(
      "Journey steps, one JSON object per line: {\"launch\": \"1.0\"}, {\"background\": true}, "
      "{\"foreground\": true}, {\"event\": \"KEY\"}, {\"wait\": SECONDS}, {\"tap\": \"ok\"|\"dismiss\"|\"postpone\"}, "
      "{\"purchase\": \"adFree\"}, {\"targets\": \"SPACE\"}, {\"campaign\": \"FILE\"}, {\"refresh\": true}.");
  simulateCommand->add_option("--campaign", simulate.campaign, "advertisements answer (JSON) to serve")->required();
  simulateCommand->add_option("--ranked", simulate.ranked, "native quality network answer (JSON) to serve");
  simulateCommand->add_option("--journey", simulate.journey, "the journey, one JSON step per line")->required();
  simulateCommand->add_flag("--json", simulate.json, "print one JSON object per line instead of a timeline");
  simulateCommand->add_option("--start", simulate.start, "the clock's start, ISO-8601")->default_val(simulate.start);
  simulateCommand->add_option("--prefs", simulate.prefs,
                              "SQLite preferences file to use and keep (default: a temporary one)");
  simulateCommand->add_option("--html", simulate.html, "also write the run as a self-contained web page (a timeline)");

  iam::tool::StatsOptions stats;
  auto* statsCommand =
      app.add_subcommand("stats", "Show the statistics and cached answers kept in a preferences file.");
  statsCommand->footer("Writes nothing to the preferences. Exit status 2 when the file is missing or not one.");
  statsCommand->add_option("--prefs", stats.prefs, "the SQLite preferences file")->required();
  statsCommand->add_flag("--json", stats.json, "print one JSON object");

  try {
    app.parse(argc, argv);
  } catch (const CLI::CallForHelp& e) {
    return app.exit(e);
  } catch (const CLI::CallForAllHelp& e) {
    return app.exit(e);
  } catch (const CLI::ParseError& e) {
    app.exit(e);
    return 2;
  }

  if (serveCommand->parsed()) return iam::tool::runServe(serve, std::cout, std::cerr);
  if (lintCommand->parsed()) return iam::tool::runLint(lint, std::cout, std::cerr);
  if (simulateCommand->parsed()) return iam::tool::runSimulate(simulate, std::cout, std::cerr);
  if (statsCommand->parsed()) return iam::tool::runStats(stats, std::cout, std::cerr);
  std::cerr << app.help();
  return 2;
}

}  // namespace

int main(int argc, char** argv) {
  // Output piped into a reader that quits early (`iam serve | head`) must not kill the tool.
  ::signal(SIGPIPE, SIG_IGN);
  try {
    return run(argc, argv);
  } catch (const std::exception& e) {
    std::cerr << "iam: " << e.what() << "\n";
  } catch (...) {
    std::cerr << "iam: unexpected failure\n";
  }
  return 2;
}
