// SPDX-License-Identifier: GPL-3.0-or-later
#include "CommandLine/Arguments.h"

#include <CLI/CLI.hpp>
#include <iostream>
#include <string>

namespace tallowmark {

namespace {

// The library's own file checks speak of "File" and "Directory"; this one says what to do.
std::string refuseFile(const std::string& folder) {
  std::error_code error;
  const auto status = std::filesystem::status(folder, error);
  return std::filesystem::exists(status) && !std::filesystem::is_directory(status)
             ? folder + " is a file; --to takes a folder"
             : std::string();
}

struct Commands {
  CLI::App app{"Rescues camera files that will not open. Originals are only read.", "tallowmark"};
  CheckRequest checking;
  RepairRequest repairing;
  JoinRequest joining;
  InspectRequest inspecting;
  DisksRequest listing;
  ImageRequest imaging;
  std::string reference;
  CLI::App* check = nullptr;
  CLI::App* repair = nullptr;
  CLI::App* join = nullptr;
  CLI::App* inspect = nullptr;
  CLI::App* disks = nullptr;
  CLI::App* image = nullptr;

  Commands() {
    app.set_version_flag("--version", "tallowmark " TALLOWMARK_VERSION);
    app.require_subcommand(1);
    addCheck();
    addRepair();
    addJoin();
    addInspect();
    addDisks();
    addImage();
  }

 private:
  static void addJson(CLI::App& command, bool& json) {
    command.add_flag("--json", json, "One JSON object a line instead of sentences");
  }

  static void addDestination(CLI::App& command, std::filesystem::path& folder) {
    command.add_option("--to", folder, "Where the copies go; made when missing")
        ->required()
        ->check(refuseFile)
        ->type_name("FOLDER");
  }

  void addCheck() {
    check = app.add_subcommand("check", "Says what is wrong with each file; changes nothing");
    check->add_option("PATH", checking.paths, "Files, or folders to look through")->required();
    addJson(*check, checking.json);
  }

  void addRepair() {
    repair = app.add_subcommand("repair", "Saves repaired copies into a folder");
    repair->add_option("PATH", repairing.paths, "Files, or folders to look through")->required();
    addDestination(*repair, repairing.folder);
    repair
        ->add_option("--reference", reference,
                     "A good file from the same camera; chosen among the given ones otherwise")
        ->type_name("FILE");
    repair->add_flag("--basic", repairing.basic,
                     "Rebuild clips by their framing alone, without compressed sound");
    addJson(*repair, repairing.json);
  }

  void addJoin() {
    join = app.add_subcommand("join", "Joins the parts of a recording that the camera split");
    join->add_option("PATH", joining.paths, "The parts, joined in name order")->required();
    addDestination(*join, joining.folder);
    join->add_flag("--find", joining.find,
                   "Find split recordings among files and folders by the names cameras give");
    addJson(*join, joining.json);
  }

  void addInspect() {
    inspect = app.add_subcommand("inspect", "Prints what is in a file");
    inspect
        ->add_option("FILE", inspecting.file,
                     "A movie, a photo or a RAW file; or a device, read as a movie")
        ->required();
    inspect->add_flag("--samples", inspecting.samples,
                      "Every sample of every track of a movie, too");
    addJson(*inspect, inspecting.json);
  }

  void addDisks() {
    disks = app.add_subcommand("disks", "Lists memory cards and external disks");
    addJson(*disks, listing.json);
  }

  void addImage() {
    image = app.add_subcommand(
        "image",
        "Copies a whole card to a file, before anything else is tried with it.\n"
        "Until every block was tried the copy is called FILE.part; FILE.map beside it says what "
        "was\n"
        "read. Blocks that cannot be read become zeros and are counted. The same command again "
        "goes\n"
        "on where the last one ended, and tries what could not be read once more");
    image->add_option("DEVICE", imaging.device, "The card, as \"tallowmark disks\" names it")
        ->required();
    image->add_option("FILE", imaging.file, "The copy; nothing else that has the name is touched")
        ->required();
    addJson(*image, imaging.json);
  }
};

}  // namespace

Request parseArguments(int count, char** arguments) {
  Commands commands;
  try {
    commands.app.parse(count, arguments);
  } catch (const CLI::ParseError& error) {
    const int status = commands.app.exit(error, std::cout, std::cerr);
    return Finished{status == 0 ? ExitStatus::allWell : ExitStatus::wrongCall};
  }
  if (*commands.check) return commands.checking;
  if (*commands.join) return commands.joining;
  if (*commands.inspect) return commands.inspecting;
  if (*commands.disks) return commands.listing;
  if (*commands.image) return commands.imaging;
  if (!commands.reference.empty()) {
    commands.repairing.reference = commands.reference;
  }
  return commands.repairing;
}

}  // namespace tallowmark
