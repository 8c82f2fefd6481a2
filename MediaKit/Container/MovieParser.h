// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <map>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "MediaKit/Container/Box.h"
#include "MediaKit/Container/FileLayout.h"
#include "MediaKit/Container/Movie.h"

/// Reads movie files (ISO/IEC 14496-12, QuickTime). Lenient: damage past the good prefix ends a
/// scan, a track that cannot be understood is left out, missing tables fall back to defaults. The
/// errors of the source pass through.
namespace tallowmark::MovieParser {

/// Walks the top level once, without reading media. Throws MediaError::notAMovie when the file does
/// not start as a movie does.
FileLayout layout(const BoxReader& reader);

/// Descends from `box` along child types; the box itself for an empty path.
std::optional<Box> find(std::span<const FourCC> path, const Box& box, const BoxReader& reader);

/// The whole movie. Throws notAMovie, and malformed when there is no complete index or a table is
/// implausibly large.
Movie parse(const BoxReader& reader);

/// The index alone; `fileType` goes into the movie as it is. Throws as parse.
Movie parseMoov(const Box& moov, const BoxReader& reader, std::vector<std::uint8_t> fileType);

/// One track; nothing when an essential box is missing. Throws as parse.
std::optional<Track> parseTrack(const Box& trak, const BoxReader& reader);

/// What a movie calls the handlers of its tracks (§8.4.3), by track number, without QuickTime's
/// leading count. Tracks without a name are left out. Throws as parse.
std::map<std::uint32_t, std::string> handlerNames(const BoxReader& reader);

}  // namespace tallowmark::MovieParser
