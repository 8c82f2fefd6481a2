// SPDX-License-Identifier: GPL-3.0-or-later
#include <iostream>

#include "CommandLine/Commands.h"
#include "CommandLine/Inspect.h"
#include "CommandLine/JsonText.h"
#include "DeviceKit/DeviceError.h"
#include "MediaKit/Container/MediaError.h"
#include "MediaKit/Naming/Kind.h"

namespace tallowmark {

namespace {

int refuse(const InspectRequest& request, const std::string& message) {
  const std::string file = request.file.string();
  std::cout << (request.json ? lineOf({{"file", file}, {"state", "failed"}, {"message", message}})
                             : file + ": " + message)
            << '\n';
  return ExitStatus::someNotWell;
}

void inspectAs(Kind kind, const InspectRequest& request) {
  switch (kind) {
    case Kind::photo:
      return inspectPhoto(request, std::cout);
    case Kind::raw:
      return inspectRaw(request, std::cout);
    case Kind::video:
      break;
  }
  inspectMovie(request, std::cout);
}

}  // namespace

int runInspect(const InspectRequest& request) {
  try {
    inspectAs(kindOf(request.file).value_or(Kind::video), request);
  } catch (const DeviceError& error) {
    return refuse(request, "Couldn't read this file: " + std::string(error.what()));
  } catch (const MediaError& error) {
    return refuse(request, error.what());
  }
  return ExitStatus::allWell;
}

}  // namespace tallowmark
