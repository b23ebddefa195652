#include "aac_layout.h"

#include <stdio.h>
#include <string.h>

enum {
    FL = 0x1, FR = 0x2, FC = 0x4, LFE = 0x8, BL = 0x10, BR = 0x20,
    FLC = 0x40, FRC = 0x80, BC = 0x100, SL = 0x200, SR = 0x400
};

static void add_slot(AacLayout* layout, int type, int tag, uint32_t first, uint32_t second)
{
    if (layout->slotCount == AAC_MAX_CHANNELS) return;
    AacLayoutSlot* s = &layout->slots[layout->slotCount++];
    s->type = type;
    s->tag = tag;
    s->position[0] = first;
    s->position[1] = type == AAC_ELEMENT_CPE ? second : 0;
    s->output[0] = s->output[1] = -1;
    s->used = 0;
}

/* Numbers the channels: by speaker bit when every position is known and distinct,
 * else in the order of the slots (mask 0). At most AAC_MAX_CHANNELS are kept. */
static void assign_outputs(AacLayout* layout)
{
    uint32_t mask = 0;
    int known = 1, count = 0;
    for (int i = 0; i < layout->slotCount; ++i) {
        AacLayoutSlot* s = &layout->slots[i];
        for (int k = 0; k < (s->type == AAC_ELEMENT_CPE ? 2 : 1); ++k) {
            if (s->position[k] == 0 || (mask & s->position[k])) known = 0;
            mask |= s->position[k];
            ++count;
        }
    }
    if (count > AAC_MAX_CHANNELS) known = 0;
    int next = 0;
    for (int i = 0; i < layout->slotCount; ++i) {
        AacLayoutSlot* s = &layout->slots[i];
        for (int k = 0; k < (s->type == AAC_ELEMENT_CPE ? 2 : 1); ++k) {
            if (known) {
                /* rank of this speaker bit among the mask's bits */
                s->output[k] = __builtin_popcount(mask & (s->position[k] - 1));
            } else {
                s->output[k] = next < AAC_MAX_CHANNELS ? next : -1;
                ++next;
            }
        }
    }
    layout->channels = count < AAC_MAX_CHANNELS ? count : AAC_MAX_CHANNELS;
    layout->channelMask = known ? mask : 0;
}

int aac_layout_from_configuration(AacLayout* layout, int configuration)
{
    memset(layout, 0, sizeof *layout);
    if (configuration < 1 || configuration > 7) return -1;
    if (configuration == 2) {
        add_slot(layout, AAC_ELEMENT_CPE, -1, FL, FR);
    } else {
        add_slot(layout, AAC_ELEMENT_SCE, -1, FC, 0);
        if (configuration >= 3) add_slot(layout, AAC_ELEMENT_CPE, -1, configuration == 7 ? FLC : FL,
                                         configuration == 7 ? FRC : FR);
        if (configuration == 7) add_slot(layout, AAC_ELEMENT_CPE, -1, FL, FR);
        if (configuration == 4) add_slot(layout, AAC_ELEMENT_SCE, -1, BC, 0);
        if (configuration >= 5) add_slot(layout, AAC_ELEMENT_CPE, -1, BL, BR);
        if (configuration >= 6) add_slot(layout, AAC_ELEMENT_LFE, -1, LFE, 0);
    }
    assign_outputs(layout);
    return 0;
}

void aac_layout_from_program(AacLayout* layout, const AacProgramConfig* p)
{
    memset(layout, 0, sizeof *layout);
    /* Front: a lone SCE is the centre; pairs go outwards (centre pair first when
     * there are two). Sides and backs: pairs; a back SCE is the back centre. */
    int frontPairs = 0;
    for (int i = 0; i < p->num_front_channel_elements; ++i) frontPairs += p->front_element_is_cpe[i] != 0;
    int frontPair = 0, frontSingles = 0;
    for (int i = 0; i < p->num_front_channel_elements; ++i) {
        const int tag = p->front_element_tag_select[i];
        if (p->front_element_is_cpe[i]) {
            const int inner = frontPairs >= 2 && frontPair == 0;
            add_slot(layout, AAC_ELEMENT_CPE, tag, frontPair < 2 ? (inner ? FLC : FL) : 0,
                     frontPair < 2 ? (inner ? FRC : FR) : 0);
            ++frontPair;
        } else {
            add_slot(layout, AAC_ELEMENT_SCE, tag, frontSingles++ == 0 ? FC : 0, 0);
        }
    }
    for (int i = 0; i < p->num_side_channel_elements; ++i)
        add_slot(layout, p->side_element_is_cpe[i] ? AAC_ELEMENT_CPE : AAC_ELEMENT_SCE,
                 p->side_element_tag_select[i], p->side_element_is_cpe[i] && i == 0 ? SL : 0,
                 p->side_element_is_cpe[i] && i == 0 ? SR : 0);
    int backPairs = 0, backSingles = 0;
    for (int i = 0; i < p->num_back_channel_elements; ++i) {
        if (p->back_element_is_cpe[i]) {
            add_slot(layout, AAC_ELEMENT_CPE, p->back_element_tag_select[i], backPairs == 0 ? BL : 0,
                     backPairs == 0 ? BR : 0);
            ++backPairs;
        } else
            add_slot(layout, AAC_ELEMENT_SCE, p->back_element_tag_select[i], backSingles++ == 0 ? BC : 0, 0);
    }
    for (int i = 0; i < p->num_lfe_channel_elements; ++i)
        add_slot(layout, AAC_ELEMENT_LFE, p->lfe_element_tag_select[i], i == 0 ? LFE : 0, 0);
    assign_outputs(layout);
}

void aac_layout_open(AacLayout* layout)
{
    memset(layout, 0, sizeof *layout);
    layout->open = 1;
}

void aac_layout_close(AacLayout* layout)
{
    if (!layout->open) return;
    layout->open = 0;
    /* When the elements are those of a standard configuration, take its positions. */
    for (int configuration = 1; configuration <= 7; ++configuration) {
        AacLayout candidate;
        aac_layout_from_configuration(&candidate, configuration);
        int same = candidate.slotCount == layout->slotCount;
        for (int i = 0; same && i < layout->slotCount; ++i) same = candidate.slots[i].type == layout->slots[i].type;
        if (same) {
            *layout = candidate;
            return;
        }
    }
    for (int i = 0; i < layout->slotCount; ++i) layout->slots[i].position[0] = layout->slots[i].position[1] = 0;
    assign_outputs(layout);
}

void aac_layout_new_block(AacLayout* layout)
{
    for (int i = 0; i < layout->slotCount; ++i) layout->slots[i].used = 0;
}

void aac_layout_place(AacLayout* layout, int type, int tag, int outputs[2])
{
    outputs[0] = outputs[1] = -1;
    AacLayoutSlot* chosen = NULL;
    for (int i = 0; i < layout->slotCount && !chosen; ++i) {
        AacLayoutSlot* s = &layout->slots[i];
        if (!s->used && s->type == type && s->tag == tag) chosen = s;
    }
    for (int i = 0; i < layout->slotCount && !chosen; ++i) {
        AacLayoutSlot* s = &layout->slots[i];
        if (!s->used && s->type == type) chosen = s;
    }
    if (!chosen && layout->open) {
        add_slot(layout, type, tag, 0, 0);
        assign_outputs(layout);
        if (layout->slots[layout->slotCount - 1].type == type) chosen = &layout->slots[layout->slotCount - 1];
    }
    if (!chosen) return;
    chosen->used = 1;
    outputs[0] = chosen->output[0];
    outputs[1] = chosen->output[1];
}

void aac_layout_describe(const AacLayout* layout, char* text, int size)
{
    static const char* const kNames[11] = {"FL", "FR", "FC", "LFE", "BL", "BR", "FLC", "FRC", "BC", "SL", "SR"};
    int used = 0;
    text[0] = '\0';
    if (layout->channelMask == 0) {
        snprintf(text, (size_t)size, "positions unknown");
        return;
    }
    for (int bit = 0; bit < 11 && used < size; ++bit)
        if (layout->channelMask & (1u << bit))
            used += snprintf(text + used, (size_t)(size - used), used ? " %s" : "%s", kNames[bit]);
}
