// What commands that draw one picture of one photo have in common.
#pragma once

#include "tools/kt7/files/photo.h"

#include <functional>
#include <string>

namespace CLI {
class App;
}

namespace kt7::tool {

struct PictureFiles {
    std::string in, out;
    bool force = false;
};

/// IN, OUT.png and --force.
void addPictureFiles(CLI::App& command, PictureFiles& files);

/// Reads the photo and writes what draw(photo) makes of it. Whatever can be refused before the work
/// is: a file that stands in the way, a format that can't be written.
void makePicture(const PictureFiles& files, const std::function<Photo(Photo& photo)>& draw);

/// RGB pictures of 8 bits, all of one size, in rows and columns on paper; null leaves a place empty.
using Panels = std::vector<std::vector<const Photo*>>;
Photo onPaper(const Panels& rows);

} // namespace kt7::tool
