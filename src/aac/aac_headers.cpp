// AAC stream headers: adif_header(), adts_fixed_header() + adts_variable_header()
// and program_config_element(). Parsing only: no sync word, CRC or value checks.
#include "aac/aac_bitstream.h"
#include "core/export.h"

namespace zam {

void aacReadProgramConfig(AacCursor& c, AacProgramConfig* pce)
{
    pce->element_instance_tag = static_cast<int32_t>(c.read(4));
    pce->object_type = static_cast<int32_t>(c.read(2));
    pce->sampling_frequency_index = static_cast<int32_t>(c.read(4));
    const int numFront = static_cast<int>(c.read(4));
    const int numSide = static_cast<int>(c.read(4));
    const int numBack = static_cast<int>(c.read(4));
    const int numLfe = static_cast<int>(c.read(2));
    const int numAssoc = static_cast<int>(c.read(3));
    const int numCc = static_cast<int>(c.read(4));
    pce->num_front_channel_elements = numFront;
    pce->num_side_channel_elements = numSide;
    pce->num_back_channel_elements = numBack;
    pce->num_lfe_channel_elements = numLfe;
    pce->num_assoc_data_elements = numAssoc;
    pce->num_valid_cc_elements = numCc;

    pce->mono_mixdown_element_number = 0;
    pce->stereo_mixdown_element_number = 0;
    pce->matrix_mixdown_idx = 0;
    pce->pseudo_surround_enable = 0;
    pce->mono_mixdown_present = static_cast<int32_t>(c.readBit());
    if (pce->mono_mixdown_present) pce->mono_mixdown_element_number = static_cast<int32_t>(c.read(4));
    pce->stereo_mixdown_present = static_cast<int32_t>(c.readBit());
    if (pce->stereo_mixdown_present) pce->stereo_mixdown_element_number = static_cast<int32_t>(c.read(4));
    pce->matrix_mixdown_idx_present = static_cast<int32_t>(c.readBit());
    if (pce->matrix_mixdown_idx_present) {
        pce->matrix_mixdown_idx = static_cast<int32_t>(c.read(2));
        pce->pseudo_surround_enable = static_cast<int32_t>(c.readBit());
    }

    for (int i = 0; i < numFront; ++i) {
        pce->front_element_is_cpe[i] = static_cast<int32_t>(c.readBit());
        pce->front_element_tag_select[i] = static_cast<int32_t>(c.read(4));
    }
    for (int i = 0; i < numSide; ++i) {
        pce->side_element_is_cpe[i] = static_cast<int32_t>(c.readBit());
        pce->side_element_tag_select[i] = static_cast<int32_t>(c.read(4));
    }
    for (int i = 0; i < numBack; ++i) {
        pce->back_element_is_cpe[i] = static_cast<int32_t>(c.readBit());
        pce->back_element_tag_select[i] = static_cast<int32_t>(c.read(4));
    }
    for (int i = 0; i < numLfe; ++i) pce->lfe_element_tag_select[i] = static_cast<int32_t>(c.read(4));
    for (int i = 0; i < numAssoc; ++i) pce->assoc_data_element_tag_select[i] = static_cast<int32_t>(c.read(4));
    for (int i = 0; i < numCc; ++i) {
        pce->cc_element_is_ind_sw[i] = static_cast<int32_t>(c.readBit());
        pce->valid_cc_element_tag_select[i] = static_cast<int32_t>(c.read(4));
    }

    // The alignment is to the byte grid of the buffer.
    c.align();
    const int commentBytes = static_cast<int>(c.read(8));
    pce->comment_field_bytes = commentBytes;
    for (int i = 0; i < commentBytes; ++i) pce->comment_field_data[i] = static_cast<uint8_t>(c.read(8));
}

}  // namespace zam

using namespace zam;

ZAM_API ZamStatus zamsUnpackADIFHeader_AAC(uint8_t** ppBitStream, AacAdifHeader* pAdifHeader,
                                           AacProgramConfig* pPrgCfgElt, int32_t prgCfgEltMax)
{
    if (!ppBitStream || !pAdifHeader || !pPrgCfgElt || !*ppBitStream) return zamStsNullPtr;
    if (prgCfgEltMax < 1 || prgCfgEltMax > 16) return zamStsAacPceCountErr;

    AacCursor c{*ppBitStream, 0};
    const uint32_t idHigh = c.read(16);
    pAdifHeader->adif_id = (idHigh << 16) | c.read(16);
    pAdifHeader->copyright_id_present = static_cast<int32_t>(c.readBit());
    if (pAdifHeader->copyright_id_present) {
        for (int i = 0; i < 9; ++i) pAdifHeader->copyright_id[i] = static_cast<uint8_t>(c.read(8));
    }
    pAdifHeader->original_copy = static_cast<int32_t>(c.readBit());
    pAdifHeader->home = static_cast<int32_t>(c.readBit());
    pAdifHeader->bitstream_type = static_cast<int32_t>(c.readBit());
    pAdifHeader->bitrate = static_cast<int32_t>(c.read(23));
    const int numPce = static_cast<int>(c.read(4)) + 1;
    pAdifHeader->num_program_config_elements = numPce;
    if (numPce > prgCfgEltMax) {
        *ppBitStream = const_cast<uint8_t*>(c.ptr);
        return zamStsAacPceCountErr;
    }
    for (int i = 0; i < numPce; ++i) {
        if (pAdifHeader->bitstream_type == 0) pAdifHeader->adif_buffer_fullness[i] = static_cast<int32_t>(c.read(20));
        aacReadProgramConfig(c, &pPrgCfgElt[i]);
    }
    *ppBitStream = const_cast<uint8_t*>(c.ptr);
    return zamStsOk;
}

ZAM_API ZamStatus zamsUnpackADTSFrameHeader_AAC(uint8_t** ppBitStream, AacAdtsFrameHeader* pAdtsFrameHeader)
{
    if (!ppBitStream || !pAdtsFrameHeader || !*ppBitStream) return zamStsNullPtr;

    AacCursor c{*ppBitStream, 0};
    AacAdtsFrameHeader* h = pAdtsFrameHeader;
    c.read(12);  // syncword, neither checked nor kept
    h->ID = static_cast<int32_t>(c.readBit());
    h->layer = static_cast<int32_t>(c.read(2));
    h->protection_absent = static_cast<int32_t>(c.readBit());
    h->profile = static_cast<int32_t>(c.read(2));
    h->sampling_frequency_index = static_cast<int32_t>(c.read(4));
    h->private_bit = static_cast<int32_t>(c.readBit());
    h->channel_configuration = static_cast<int32_t>(c.read(3));
    h->original_copy = static_cast<int32_t>(c.readBit());
    h->home = static_cast<int32_t>(c.readBit());
    h->copyright_identification_bit = static_cast<int32_t>(c.readBit());
    h->copyright_identification_start = static_cast<int32_t>(c.readBit());
    h->aac_frame_length = static_cast<int32_t>(c.read(13));
    h->adts_buffer_fullness = static_cast<int32_t>(c.read(11));
    h->number_of_raw_data_blocks_in_frame = static_cast<int32_t>(c.read(2)) + 1;
    if (h->protection_absent == 0) h->crc_check = static_cast<int32_t>(c.read(16));
    *ppBitStream = const_cast<uint8_t*>(c.ptr);
    return zamStsOk;
}

ZAM_API ZamStatus zamsDecodePrgCfgElt_AAC(uint8_t** ppBitStream, int32_t* pOffset, AacProgramConfig* pPrgCfgElt)
{
    if (!ppBitStream || !pOffset || !pPrgCfgElt || !*ppBitStream) return zamStsNullPtr;
    if (static_cast<uint32_t>(*pOffset) > 7) return zamStsAacBitOffsetErr;

    AacCursor c{*ppBitStream, *pOffset};
    aacReadProgramConfig(c, pPrgCfgElt);
    *ppBitStream = const_cast<uint8_t*>(c.ptr);
    *pOffset = c.offset;
    return zamStsOk;
}
