#pragma once

#include <cstddef>
#include <cstdint>

namespace uvc_gadget {

// Which entity of the control interface a camera control belongs to.
enum class Entity : uint8_t { CameraTerminal, ProcessingUnit, ExtensionUnit };

// guidExtensionCode of the extension unit that carries the settings no
// standard control stands for, as the descriptor holds it: the GUID
// 728069eb-37e8-4413-88ef-e87f35d5c834, its first three fields
// little-endian. Its selectors are 1.. in the order of controlRows().
extern const uint8_t kExtensionGuid[16];

// One UVC camera control and the library setting (or, for pan/tilt, the two
// settings) it stands for. min/max/res/def are the library's own settings
// table's, so that what the host is told matches what the library records;
// they are in the control's own units.
struct ControlRow {
    Entity entity;
    uint8_t selector;   // UVC_CT_* / UVC_PU_*, or the extension unit's own
    const char* name;   // the library's setting name
    const char* name2;  // second field's setting (pan/tilt), else nullptr
    uint8_t fieldSize;  // bytes per field: 1, 2 or 4
    bool isSigned;
    int32_t min, max, res, def;

    uint8_t fields() const { return name2 != nullptr ? 2 : 1; }
    uint16_t length() const { return uint16_t(fieldSize * fields()); }
};

// The controls the bridge answers; a request for any other one stalls.
const ControlRow* findControl(Entity entity, uint8_t selector);
const ControlRow* controlRows(size_t& count);

// Writes `value` as the row's little-endian field `field` of `out`.
void encodeField(const ControlRow& row, int32_t value, unsigned field, uint8_t* out);
// Reads field `field` of a little-endian control value; `data` holds at least
// row.length() bytes.
int32_t decodeField(const ControlRow& row, const uint8_t* data, unsigned field);
// `value` brought into [min, max] (hosts are meant to check, not all do).
int32_t clampToRange(const ControlRow& row, int32_t value);

}  // namespace uvc_gadget
