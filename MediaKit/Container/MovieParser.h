// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <optional>
#include <span>
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

/// The same; nothing where layout throws notAMovie, as for a file whose head is overwritten.
std::optional<FileLayout> layoutIfAny(const BoxReader& reader);

/// Descends from `box` along child types; the box itself for an empty path.
std::optional<Box> find(std::span<const FourCC> path, const Box& box, const BoxReader& reader);

/// The whole movie. Throws notAMovie, and malformed when there is no complete index or a table is
/// implausibly large.
Movie parse(const BoxReader& reader);

/// The index, with what the file's movie fragments add to it; `fileType` goes into the movie as it
/// is. Throws as parse.
Movie parseMoov(const Box& moov, const BoxReader& reader, std::vector<std::uint8_t> fileType);

/// One track; nothing when an essential box is missing. Throws as parse.
std::optional<Track> parseTrack(const Box& trak, const BoxReader& reader);

/// Fills in what the file calls the handlers (§8.4.3) of tracks that are neither picture nor sound,
/// without QuickTime's leading count: for a copy that should keep the names. Throws as parse.
void readHandlerNames(const BoxReader& reader, Movie& movie);

}  // namespace tallowmark::MovieParser
