#include "tools/kt7/files/jpegCoding.h"

#include <algorithm>
#include <iterator>

#include <jerror.h>

namespace kt7::tool {

bool meansDamage(int warning) {
    constexpr int harmless[] = {JWRN_EXTRANEOUS_DATA, JWRN_ADOBE_XFORM, JWRN_JFIF_MAJOR,
                                JWRN_BOGUS_ICC};
    return std::ranges::find(harmless, warning) == std::end(harmless);
}

JpegCoding codingOf(const jpeg_decompress_struct& codec) {
    JpegCoding coding;
    coding.colourSpace = codec.jpeg_color_space;
    coding.progressive = codec.progressive_mode != 0;
    for (int c = 0; c < codec.num_components; ++c) {
        const auto& component = codec.comp_info[c];
        coding.components.push_back(
            {component.h_samp_factor, component.v_samp_factor, component.quant_tbl_no});
        // The table as it was when the component's first scan began.
        const JQUANT_TBL* table = component.quant_table != nullptr
                                      ? component.quant_table
                                      : codec.quant_tbl_ptrs[component.quant_tbl_no & 3];
        if (table != nullptr)
            coding.tables[static_cast<std::size_t>(component.quant_tbl_no & 3)].assign(
                std::begin(table->quantval), std::end(table->quantval));
    }
    return coding;
}

bool canCodeLike(const JpegCoding& coding, int channels) {
    return coding.components.size() == static_cast<std::size_t>(channels) &&
           !coding.tables[static_cast<std::size_t>(coding.components[0].table & 3)].empty();
}

void codeLike(const JpegCoding& coding, jpeg_compress_struct& codec) {
    jpeg_set_colorspace(&codec, static_cast<J_COLOR_SPACE>(coding.colourSpace));
    for (std::size_t t = 0; t < coding.tables.size(); ++t) {
        unsigned int steps[DCTSIZE2];
        if (coding.tables[t].size() != DCTSIZE2)
            continue;
        std::ranges::copy(coding.tables[t], steps);
        jpeg_add_quant_table(&codec, static_cast<int>(t), steps, 100, FALSE);
    }
    for (int c = 0; c < codec.num_components; ++c) {
        const auto& from = coding.components[static_cast<std::size_t>(c)];
        codec.comp_info[c].h_samp_factor = from.horizontal;
        codec.comp_info[c].v_samp_factor = from.vertical;
        codec.comp_info[c].quant_tbl_no = from.table & 3;
    }
    if (coding.progressive)
        jpeg_simple_progression(&codec);
}

} // namespace kt7::tool
