#include "launcher/sandbox/foreign_processor.h"

#include "launcher/host_program.h"
#include "rovu_sim/text_files.h"
#include "util/descriptor.h"

#include <cerrno>
#include <dirent.h>
#include <elf.h>
#include <fcntl.h>
#include <filesystem>
#include <sys/mount.h>
#include <system_error>

namespace rovusim {
namespace {

constexpr size_t kIdentity = 20;  // bytes of the header up to and with the processor

#if defined(__x86_64__)
constexpr unsigned kOwnProcessor = EM_X86_64;
#elif defined(__aarch64__)
constexpr unsigned kOwnProcessor = EM_AARCH64;
#endif

struct Emulator {
    unsigned processor;
    int bits, order;  // classes of the header
    const char* name;
};
constexpr Emulator kEmulators[] = {
    {EM_MIPS, ELFCLASS32, ELFDATA2MSB, "qemu-mips-static"},
    {EM_MIPS, ELFCLASS32, ELFDATA2LSB, "qemu-mipsel-static"},
    {EM_MIPS, ELFCLASS64, ELFDATA2MSB, "qemu-mips64-static"},
    {EM_MIPS, ELFCLASS64, ELFDATA2LSB, "qemu-mips64el-static"},
    {EM_ARM, ELFCLASS32, ELFDATA2LSB, "qemu-arm-static"},
    {EM_ARM, ELFCLASS32, ELFDATA2MSB, "qemu-armeb-static"},
    {EM_AARCH64, ELFCLASS64, ELFDATA2LSB, "qemu-aarch64-static"},
    {EM_PPC, ELFCLASS32, ELFDATA2MSB, "qemu-ppc-static"},
    {EM_PPC64, ELFCLASS64, ELFDATA2MSB, "qemu-ppc64-static"},
    {EM_PPC64, ELFCLASS64, ELFDATA2LSB, "qemu-ppc64le-static"},
    {EM_RISCV, ELFCLASS32, ELFDATA2LSB, "qemu-riscv32-static"},
    {EM_RISCV, ELFCLASS64, ELFDATA2LSB, "qemu-riscv64-static"},
    {EM_386, ELFCLASS32, ELFDATA2LSB, "qemu-i386-static"},
    {EM_X86_64, ELFCLASS64, ELFDATA2LSB, "qemu-x86_64-static"},
};

struct Header {
    std::string bytes;  // kIdentity of them; empty: no ELF file

    int bits() const { return bytes[EI_CLASS]; }
    int order() const { return bytes[EI_DATA]; }
    unsigned processor() const {
        const auto first = static_cast<unsigned char>(bytes[18]),
                   second = static_cast<unsigned char>(bytes[19]);
        return order() == ELFDATA2MSB ? first * 256U + second : second * 256U + first;
    }
};

Header headerOf(const std::string& program) {
    const zem::Descriptor file(open(program.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    char bytes[kIdentity];
    const bool isElf = file.isOpen() && pread(file.get(), bytes, kIdentity, 0) == ssize_t{kIdentity} &&
                       std::string(bytes, SELFMAG) == ELFMAG;
    return {isElf ? std::string(bytes, kIdentity) : ""};
}

std::string emulatorOf(const Header& header) {
    for (const Emulator& emulator : kEmulators) {
        if (emulator.processor == header.processor() && emulator.bits == header.bits() &&
            emulator.order == header.order())
            return emulator.name;
    }
    return "";
}

std::string escaped(const std::string& bytes) {
    const char* digits = "0123456789abcdef";
    std::string text;
    for (const char c : bytes) {
        const auto byte = static_cast<unsigned char>(c);
        text.append("\\x").append(1, digits[byte >> 4]).append(1, digits[byte & 15]);
    }
    return text;
}

// Of the identity, what differs between programs of one processor does not count: the ABI and the type, which is 2 or
// 3. Flag F: the kernel opens the emulator now, and needs no path to it inside.
std::string registration(const Header& header, const std::string& emulator) {
    std::string mask(kIdentity, '\xff');
    mask.replace(EI_OSABI, EI_NIDENT - EI_OSABI, EI_NIDENT - EI_OSABI, '\0');
    mask[header.order() == ELFDATA2MSB ? 17 : 16] = '\xfe';
    std::string magic = header.bytes;
    magic.replace(EI_OSABI, EI_NIDENT - EI_OSABI, EI_NIDENT - EI_OSABI, '\0');
    return ":rovu-sim:M::" + escaped(magic) + ":" + escaped(mask) + ":" + emulator + ":F";
}

// Whether a registration is one of this emulator, which it may name by a link, that needs no path inside.
bool isEnabled(const std::string& registration, const std::string& emulator) {
    const std::string key = "interpreter ";
    bool isOn = false, isOfIt = false, isOpen = false;
    std::error_code none;
    for (const std::string& line : splitLines(registration)) {
        isOn = isOn || line == "enabled";
        isOfIt = isOfIt || (line.compare(0, key.size(), key) == 0 &&
                            std::filesystem::equivalent(line.substr(key.size()), emulator, none));
        isOpen = isOpen || (line.compare(0, 7, "flags: ") == 0 && line.find('F', 7) != std::string::npos);
    }
    return isOn && isOfIt && isOpen;
}

bool hostHas(const std::string& emulator) {
    const std::string folder = "/proc/sys/fs/binfmt_misc";
    DIR* entries = opendir(folder.c_str());
    if (entries == nullptr) return false;
    bool found = false;
    for (const dirent* entry = readdir(entries); entry != nullptr; entry = readdir(entries)) {
        std::string text;
        if (readTextFile(folder + "/" + entry->d_name, &text) == 0)
            found = found || isEnabled(text, emulator);
    }
    closedir(entries);
    return found;
}

// The registration lasts as long as the mount, which is that of bubblewrap's outer process.
int registerEmulator(const Header& header, const std::string& emulator, const std::string& scratch) {
    if (mount("binfmt_misc", scratch.c_str(), "binfmt_misc", MS_NOSUID | MS_NODEV | MS_NOEXEC, nullptr) != 0)
        return errno;
    const zem::Descriptor file(open((scratch + "/register").c_str(), O_WRONLY | O_CLOEXEC));
    const std::string text = registration(header, emulator);
    return file.isOpen() ? writeFully(file.get(), text.data(), text.size()) : errno;
}

}  // namespace

bool isOfOtherProcessor(const std::string& program) {
    const Header header = headerOf(program);
    return !header.bytes.empty() && header.processor() != kOwnProcessor;
}

int registerProcessorOf(const std::string& program, bool hasUserNamespace, const std::string& scratch) {
    const Header header = headerOf(program);
    const std::string name = header.bytes.empty() ? "" : emulatorOf(header);
    if (name.empty()) {
        complain("the device's programs are of a processor that is not known here");
        return ENOEXEC;
    }
    const std::string emulator = findProgram(name);
    // Without a user namespace, a registration would be one for the whole host.
    if (hasUserNamespace && !emulator.empty() && registerEmulator(header, emulator, scratch) == 0) return 0;
    if (!emulator.empty() && hostHas(emulator)) return 0;
    complain("the device's programs are of another processor, and " + name +
             (emulator.empty() ? ", which runs them, is not installed (Debian's package qemu-user-static)"
                               : " cannot be registered for it: that needs Linux 6.7, or Debian's packages "
                                 "qemu-user-static and binfmt-support, which register it for the host"));
    return ENOEXEC;
}

}  // namespace rovusim
