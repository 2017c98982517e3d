// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <map>
#include <memory>
#include <string>
#include <type_traits>
#include <vector>

#include "mivo/utils/export.hpp"

namespace mivo {

/// Where an array lives: the host ("cpu:0") or a GPU ("cuda:1"). A small value that is copied
/// freely.
///
/// It selects the memory functions below and the execution space in which a kernel runs. Memory of
/// a device is taken and given back only through `rawMalloc` and `rawFree`; whoever allocates owns.
/// Nothing here checks the return codes of the memory functions of the device.
class MIVO_API Device {
 public:
  static constexpr int kHost = 0;  ///< host memory
  static constexpr int kCuda = 1;  ///< CUDA GPU
  static constexpr int kHip = 2;   ///< accepted as a name only, without memory or kernels

  /// What the registry holds for a device.
  struct DeviceInfo {
    std::shared_ptr<void> space;  ///< the `spm` execution space object, type-erased
    void* stream = nullptr;       ///< CUDA stream of the device, null on the host
  };

  int type = kHost;          ///< device kind
  int id = 0;                ///< ordinal within the kind, 0 for the host
  std::string name = "cpu";  ///< text of the kind in `type_map`

  /// Kinds by text. A lookup never adds one: it gives 0 for a text that is no kind.
  struct MIVO_API KindMap : std::map<std::string, int> {
    using std::map<std::string, int>::map;
    int operator[](const std::string& text) const {
      const auto entry = find(text);
      return entry == end() ? kHost : entry->second;
    }
  };

  /// Text of each kind: "cpu" 0, "cuda" 1, "hip" 2.
  static const KindMap type_map;

  // A number alone does not convert: it would pass for a count or an index.
  Device() = default;
  explicit Device(int kind) : Device(kind, 0) {}
  /// An unknown kind keeps its number and the name "cpu".
  Device(int type, int id);

  /// Parses "cuda:1" or "cpu". An unknown kind prints a line and gives `cpu:0`. A text behind the
  /// colon that is no number, or too large, raises the exception of `std::stoi`.
  Device(const std::string& text);
  /// The same for a literal; a template, since the number 0 would pass for a null pointer.
  template <class Char, std::enable_if_t<std::is_same_v<Char, char>, int> = 0>
  Device(const Char* text) : Device(std::string(text)) {}

  /// "cpu:0", "cuda:1".
  std::string getString() const;

  /// The registry's entry; empty, with a printed line, when there is none.
  DeviceInfo getDeviceInfo() const;

  /// Makes a GPU the calling thread's current device; does nothing for other kinds.
  void setDeviceContext() const;
  /// Ordinal of the thread's current GPU, -1 when this is not a GPU.
  int getDeviceContext() const;

  /// Fresh memory of `bytes` bytes, or null where the kind has none. Large host blocks ask for
  /// huge pages, and begin with a cache line at least; all host blocks go back through `free`.
  void* rawMalloc(std::size_t bytes) const;
  /// The same as `rawMalloc(bytes)`: neither copies nor frees `p`.
  void* rawRealloc(void* p, std::size_t bytes) const;
  void rawFree(void* p) const;  ///< gives back a block of this device, or null
  /// Synchronous copy from this device to `dst` on `dstDevice`. Pairs of kinds without a copy do
  /// nothing.
  void rawCopyTo(std::size_t bytes, const void* src, const Device& dstDevice, void* dst) const;

  /// Starts the message layer if nobody has, and fills the registry. Main thread; a second call
  /// changes nothing. Host work needs neither this nor `finalize`. Ends the program where the
  /// message-passing library lacks the binary interface of MPICH. A line on standard error tells
  /// where a launcher has started several processes of which each is a world of its own, and where
  /// the message layer has ended already: a real one cannot be started twice.
  static void initialize();
  /// Empties the registry and ends the message layer.
  static void finalize();

  /// One entry per device, filled by `initialize`.
  static std::map<Device, DeviceInfo>& getDeviceInfoMap();
  /// The host and each GPU that the driver reports, whether or not `initialize` has run.
  static std::vector<Device> getAllDevices();

  bool operator==(const Device& other) const { return type == other.type && id == other.id; }
  bool operator!=(const Device& other) const { return !(*this == other); }
  /// By kind, then by ordinal.
  bool operator<(const Device& other) const {
    return type != other.type ? type < other.type : id < other.id;
  }
};

/// Makes the execution space of each device and stores it in the registry; part of
/// `Device::initialize`.
MIVO_API void buildInfoMap();

namespace spm {

/// State of the kernel layer; `Device::initialize` and `Device::finalize` drive it.
extern MIVO_API bool gs_spm_init;
MIVO_API void initialize(int argc, char** argv);
MIVO_API void finalize();
MIVO_API bool is_initialized();

}  // namespace spm
}  // namespace mivo
