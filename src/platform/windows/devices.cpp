#include "platform/devices.h"

#include <algorithm>

#include <windows.h>
#include <winioctl.h>

#include "platform/windows/wide.h"

namespace platform {

namespace {

// Some drivers refuse larger transfers.
constexpr std::size_t largest_transfer = 0x800000;

drive_geometry geometry_of(const DISK_GEOMETRY& from)
{
    drive_geometry geometry;
    geometry.cylinders = static_cast<std::uint64_t>(from.Cylinders.QuadPart);
    geometry.media_type = static_cast<std::uint32_t>(from.MediaType);
    geometry.tracks_per_cylinder = from.TracksPerCylinder;
    geometry.sectors_per_track = from.SectorsPerTrack;
    geometry.bytes_per_sector = from.BytesPerSector;
    return geometry;
}

class volume_device final : public device {
public:
    explicit volume_device(HANDLE handle) : handle_(handle) {}
    ~volume_device() override { ::CloseHandle(handle_); }

    std::optional<drive_geometry> extended_geometry(std::int64_t& disk_size) override
    {
        // The answer is longer than the part of it that has a type.
        alignas(DISK_GEOMETRY_EX) std::uint8_t answer[120]{};
        if (!ask(IOCTL_DISK_GET_DRIVE_GEOMETRY_EX, answer, sizeof answer)) {
            return std::nullopt;
        }
        const auto* const found = reinterpret_cast<const DISK_GEOMETRY_EX*>(answer);
        disk_size = found->DiskSize.QuadPart;
        return geometry_of(found->Geometry);
    }

    std::optional<drive_geometry> geometry() override
    {
        DISK_GEOMETRY found{};
        if (!ask(IOCTL_DISK_GET_DRIVE_GEOMETRY, &found, sizeof found)) {
            return std::nullopt;
        }
        return geometry_of(found);
    }

    std::optional<partition_facts> partition() override
    {
        PARTITION_INFORMATION found{};
        if (!ask(IOCTL_DISK_GET_PARTITION_INFO, &found, sizeof found)) {
            return std::nullopt;
        }
        return partition_facts{found.StartingOffset.QuadPart, found.PartitionLength.QuadPart,
                               found.PartitionNumber};
    }

    std::optional<partition_facts> extended_partition() override
    {
        PARTITION_INFORMATION_EX found{};
        if (!ask(IOCTL_DISK_GET_PARTITION_INFO_EX, &found, sizeof found)) {
            return std::nullopt;
        }
        return partition_facts{found.StartingOffset.QuadPart, found.PartitionLength.QuadPart,
                               found.PartitionNumber};
    }

    std::optional<std::uint32_t> drive_number() override
    {
        STORAGE_DEVICE_NUMBER found{};
        if (!ask(IOCTL_STORAGE_GET_DEVICE_NUMBER, &found, sizeof found)) {
            return std::nullopt;
        }
        return found.DeviceNumber;
    }

    std::size_t read(std::span<std::uint8_t> out, std::int64_t offset) override
    {
        std::size_t done = 0;
        while (done < out.size()) {
            const auto wanted = static_cast<DWORD>(std::min(out.size() - done, largest_transfer));
            const std::uint64_t place = static_cast<std::uint64_t>(offset) + done;
            OVERLAPPED position{};
            position.Offset = static_cast<DWORD>(place);
            position.OffsetHigh = static_cast<DWORD>(place >> 32);
            DWORD got = 0;
            if (!::ReadFile(handle_, out.data() + done, wanted, &got, &position) || got == 0) {
                break;
            }
            done += got;
        }
        return done;
    }

private:
    bool ask(DWORD question, void* answer, DWORD size) const
    {
        DWORD got = 0;
        return ::DeviceIoControl(handle_, question, nullptr, 0, answer, size, &got, nullptr) != 0;
    }

    HANDLE handle_;
};

} // namespace

std::unique_ptr<device> open_device(const std::string& name, device_access access)
{
    const DWORD rights = GENERIC_READ | (access.write ? GENERIC_WRITE : 0);
    const HANDLE handle = ::CreateFileW(
        wide_from_utf8(name).c_str(), rights, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
        OPEN_EXISTING, access.random ? FILE_FLAG_RANDOM_ACCESS : FILE_ATTRIBUTE_NORMAL, nullptr);
    if (handle == INVALID_HANDLE_VALUE) {
        return nullptr;
    }
    return std::make_unique<volume_device>(handle);
}

} // namespace platform
