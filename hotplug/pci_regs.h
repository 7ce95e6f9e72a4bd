// PCI configuration-space registers and bits that the hot-plug registration
// reads: the type 0/1 header, the capability list, the SHPC register window
// and the PCI Express capability (names as in pciutils' header.h).
#pragma once

#include <cstdint>

// Configuration header.
constexpr int PCI_VENDOR_ID = 0x00;       // 16 bits
constexpr int PCI_DEVICE_ID = 0x02;       // 16 bits
constexpr int PCI_STATUS = 0x06;          // 16 bits
constexpr uint16_t PCI_STATUS_CAP_LIST = 0x10;
constexpr int PCI_REVISION_ID = 0x08;
constexpr int PCI_CLASS_PROG = 0x09;      // programming interface
constexpr int PCI_CLASS_DEVICE = 0x0a;    // subclass; as 16 bits the class word
constexpr int PCI_CLASS_CODE = 0x0b;      // base class
constexpr int PCI_HEADER_TYPE = 0x0e;
constexpr int PCI_SECONDARY_BUS = 0x19;   // type 1 (bridge) header
constexpr int PCI_CAPABILITY_LIST = 0x34;

constexpr uint16_t PCI_VENDOR_NONE = 0xffff;  // no function answers
constexpr uint16_t PCI_CLASS_BRIDGE_PCI = 0x0604;

// Capability list entries: ID byte, then the pointer to the next entry.
constexpr int PCI_CAP_LIST_ID = 0;
constexpr int PCI_CAP_LIST_NEXT = 1;
constexpr uint8_t PCI_CAP_ID_PM = 0x01;
constexpr uint8_t PCI_CAP_ID_SHPC = 0x0c;
constexpr uint8_t PCI_CAP_ID_EXP = 0x10;

// SHPC capability: a byte written to DWORD Select chooses the controller
// register that DWORD Data then reads.
constexpr int SHPC_DWORD_SELECT = 2;
constexpr int SHPC_DWORD_DATA = 4;
constexpr uint8_t SHPC_SLOTS_AVAILABLE_1 = 1;
constexpr uint8_t SHPC_SLOTS_AVAILABLE_2 = 2;
constexpr uint8_t SHPC_SLOT_CONFIG = 3;
constexpr uint8_t SHPC_SEC_BUS_CONFIG = 4;

// Secondary Bus Configuration bits 2:0, the current speed and mode (codes
// 0 to 4, from 33 MHz PCI to 133 MHz PCI-X; shpc_bus_speed names them).
constexpr uint32_t SHPC_SEC_BUS_SPEED_MASK = 0x7;
// Slot Configuration bits 12:8, the device number of the first slot.
constexpr unsigned SHPC_FIRST_DEVICE_SHIFT = 8;
constexpr uint32_t SHPC_SLOT_COUNT_MASK = 0x1f;  // each 5-bit slot count
// Slot Configuration bits 26:16, the physical number of the first slot, and
// bit 29, set when the numbers of the following slots go up (else down).
constexpr unsigned SHPC_SLOT_CONFIG_PSN_SHIFT = 16;
constexpr uint32_t SHPC_SLOT_CONFIG_PSN_MASK = 0x7ff;
constexpr uint32_t SHPC_SLOT_CONFIG_PSN_UP = 1u << 29;

// PCI Express capability.
constexpr int PCI_EXP_FLAGS = 2;          // 16 bits
constexpr uint16_t PCI_EXP_FLAGS_TYPE = 0x00f0;
constexpr unsigned PCI_EXP_FLAGS_TYPE_SHIFT = 4;
constexpr uint16_t PCI_EXP_TYPE_DOWNSTREAM = 6;
constexpr uint16_t PCI_EXP_FLAGS_SLOT = 0x0100;
constexpr int PCI_EXP_SLTCAP = 0x14;      // low 16 bits read
constexpr uint16_t PCI_EXP_SLTCAP_PCP = 0x0002;  // power controller present
constexpr unsigned PCI_EXP_SLTCAP_PSN_SHIFT = 19;  // bits 31:19, physical slot number
