#include "tools/kt7/pictureCommand.h"

#include "tools/kt7/batch.h"
#include "tools/kt7/defaults.h"
#include "tools/kt7/files/imageFile.h"

#include <CLI/CLI.hpp>

#include <algorithm>

namespace kt7::tool {

void addPictureFiles(CLI::App& command, PictureFiles& files) {
    command.add_option("in", files.in, "The photo; - stands for standard input")
        ->required()
        ->type_name("IN");
    command.add_option("out", files.out, "The picture, 8 bits; - writes PNG to standard output")
        ->required()
        ->type_name("OUT.png");
    addForceOption(command, files.force);
}

void makePicture(const PictureFiles& files, const std::function<Photo(Photo& photo)>& draw) {
    const Existing existing = files.force ? Existing::replace : Existing::refuse;
    checkWritable(files.out, existing);
    Photo photo = readPhoto(files.in);
    const FileFormat& format =
        writableFormat(files.out, files.out == "-" ? "png" : std::string(), photo);
    writePhoto(draw(photo), files.out, format, defaults::lossyQuality, existing);
}

Photo onPaper(const Panels& rows) {
    constexpr std::size_t gap = 8;
    constexpr std::uint16_t paper = 245;
    const Photo& first = *rows.front().front();
    const auto panelWidth = static_cast<std::size_t>(first.width),
               panelHeight = static_cast<std::size_t>(first.height);
    const std::size_t width = rows.front().size() * (panelWidth + gap) - gap,
                      height = rows.size() * (panelHeight + gap) - gap;
    Photo whole;
    whole.width = static_cast<std::int32_t>(width);
    whole.height = static_cast<std::int32_t>(height);
    whole.samples.assign(3 * width * height, paper);
    for (std::size_t row = 0; row < rows.size(); ++row)
        for (std::size_t column = 0; column < rows[row].size(); ++column)
            for (std::size_t y = 0; rows[row][column] != nullptr && y < panelHeight; ++y) {
                const std::size_t to =
                    (row * (panelHeight + gap) + y) * width + column * (panelWidth + gap);
                std::copy_n(&rows[row][column]->samples[3 * y * panelWidth], 3 * panelWidth,
                            &whole.samples[3 * to]);
            }
    return whole;
}

} // namespace kt7::tool
