// The four records handed to the hot-plug driver. They are the wire format
// of a 32-bit process: fixed-width fields, 4-byte alignment at most, and
// 32-bit addresses (hba_list). The 64-bit reserved field of ShpcInfo lies
// at offset 60, which an 8-aligned uint64_t could not; it is kept as two
// 32-bit words so that the 32-bit and the 64-bit build lay out identical
// bytes without a packed attribute. Every multi-byte field is little-endian
// whatever the host (LittleEndian), so a big-endian build hands the driver
// the same bytes.
#pragma once

#include <cstddef>
#include <cstdint>

#include "lib/little_endian.h"

constexpr uint32_t HBA_INFO_MAGIC = 0xBEEF2BAD;
constexpr uint32_t SHPC_MAGIC = 0xFEEDBEEF;
constexpr uint32_t PCIE_PORT_MAGIC = 0x7ED4BEEF;

constexpr size_t BUS_ID_FIELD_SIZE = 20;  // 19 characters and the NUL

// One labelled adapter.
struct HbaInfo {
    le32 magic;           // HBA_INFO_MAGIC
    le32 alt_pm;          // 1: listed in alterpm.conf
    le16 domain;
    uint8_t bus;
    uint8_t device;
    uint8_t function;
    uint8_t revision;
    uint8_t pm_cap;       // offset of the power-management capability
    uint8_t header_type;
    char bus_id[BUS_ID_FIELD_SIZE];  // the label table's text, NUL, zeros
};

// A counted array of HbaInfo; the records follow the header.
struct HbaInfoList {
    le32 count;
    le32s err_num;        // set by the driver: 1-based number of a rejected record
};

// One hot-plug controller: an SHPC bridge or a power-controlled PCI Express
// downstream port.
struct ShpcInfo {
    le32 magic;           // SHPC_MAGIC or PCIE_PORT_MAGIC
    le32 reserved0;
    le16 domain;          // the controller's own address
    uint8_t bus;
    uint8_t device;
    uint8_t function;
    uint8_t revision;
    uint8_t reserved1;
    uint8_t header_type;
    char bus_id[BUS_ID_FIELD_SIZE];
    le16 class_code;
    uint8_t secondary_bus;
    uint8_t cap_offset;   // SHPC or PCI Express capability
    uint8_t first_device; // SHPC: filled when a busID is first tried
    uint8_t slot_count;
    uint8_t reserved2[2];
    le32 slots_available_1;
    le32 slots_available_2;
    le32 slot_config;
    le32 sec_bus_config;
    le32 reserved64[2];   // one 64-bit field, low word first
    le32 hba_count;
    le32 hba_list;        // 32-bit address of this controller's HbaInfoList
};

// A counted array of ShpcInfo; the records follow the header.
struct ShpcInfoTable {
    le32 count;
    le32 total_size;      // this block plus every controller's list
    le32 max_hba_count;
    le32s err_num;        // set by the driver: 1-based rejected controller
    le32s device_err_num; // and the 1-based rejected adapter in its list
};

static_assert(sizeof(HbaInfo) == 36 && alignof(HbaInfo) == 4);
static_assert(offsetof(HbaInfo, magic) == 0 && offsetof(HbaInfo, alt_pm) == 4 &&
              offsetof(HbaInfo, domain) == 8 && offsetof(HbaInfo, bus) == 10 &&
              offsetof(HbaInfo, device) == 11 && offsetof(HbaInfo, function) == 12 &&
              offsetof(HbaInfo, revision) == 13 && offsetof(HbaInfo, pm_cap) == 14 &&
              offsetof(HbaInfo, header_type) == 15 && offsetof(HbaInfo, bus_id) == 16);

static_assert(sizeof(HbaInfoList) == 8);
static_assert(offsetof(HbaInfoList, count) == 0 && offsetof(HbaInfoList, err_num) == 4);

static_assert(sizeof(ShpcInfo) == 76 && alignof(ShpcInfo) == 4);
static_assert(offsetof(ShpcInfo, magic) == 0 && offsetof(ShpcInfo, reserved0) == 4 &&
              offsetof(ShpcInfo, domain) == 8 && offsetof(ShpcInfo, bus) == 10 &&
              offsetof(ShpcInfo, device) == 11 && offsetof(ShpcInfo, function) == 12 &&
              offsetof(ShpcInfo, revision) == 13 && offsetof(ShpcInfo, reserved1) == 14 &&
              offsetof(ShpcInfo, header_type) == 15 && offsetof(ShpcInfo, bus_id) == 16);
static_assert(offsetof(ShpcInfo, class_code) == 36 && offsetof(ShpcInfo, secondary_bus) == 38 &&
              offsetof(ShpcInfo, cap_offset) == 39 && offsetof(ShpcInfo, first_device) == 40 &&
              offsetof(ShpcInfo, slot_count) == 41 && offsetof(ShpcInfo, reserved2) == 42 &&
              offsetof(ShpcInfo, slots_available_1) == 44 &&
              offsetof(ShpcInfo, slots_available_2) == 48 &&
              offsetof(ShpcInfo, slot_config) == 52 && offsetof(ShpcInfo, sec_bus_config) == 56 &&
              offsetof(ShpcInfo, reserved64) == 60 && offsetof(ShpcInfo, hba_count) == 68 &&
              offsetof(ShpcInfo, hba_list) == 72);

static_assert(sizeof(ShpcInfoTable) == 20);
static_assert(offsetof(ShpcInfoTable, count) == 0 && offsetof(ShpcInfoTable, total_size) == 4 &&
              offsetof(ShpcInfoTable, max_hba_count) == 8 && offsetof(ShpcInfoTable, err_num) == 12 &&
              offsetof(ShpcInfoTable, device_err_num) == 16);

// What discovery keeps of a controller: everything before hba_count.
constexpr size_t SHPC_INFO_DISCOVERED_SIZE = offsetof(ShpcInfo, hba_count);
static_assert(SHPC_INFO_DISCOVERED_SIZE == 68);

// Block sizes, 64 bits wide so that no count can wrap them.
constexpr uint64_t hba_info_list_size(uint64_t count)
{
    return sizeof(HbaInfoList) + sizeof(HbaInfo) * count;
}
constexpr uint64_t shpc_info_table_size(uint64_t count)
{
    return sizeof(ShpcInfoTable) + sizeof(ShpcInfo) * count;
}

inline HbaInfo *hba_info_records(HbaInfoList *list) { return reinterpret_cast<HbaInfo *>(list + 1); }
inline ShpcInfo *shpc_info_records(ShpcInfoTable *table)
{
    return reinterpret_cast<ShpcInfo *>(table + 1);
}

// The reserved 64-bit field as one value (for the dump line).
inline uint64_t shpc_reserved64(const ShpcInfo &s)
{
    return (uint64_t{s.reserved64[1]} << 32) | uint32_t{s.reserved64[0]};
}
