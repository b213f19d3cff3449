#include "launcher/sandbox/foreign_processor.h"

#include "launcher/message.h"
#include "rovu_sim/text_files.h"
#include "util/descriptor.h"

#include <cerrno>
#include <dirent.h>
#include <elf.h>
#include <fcntl.h>
#include <sys/mount.h>
#include <unistd.h>

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

std::string findEmulator(const std::string& name) {
    for (const char* folder : {"/usr/bin/", "/usr/local/bin/"}) {
        std::string path = folder + name;
        if (access(path.c_str(), X_OK) == 0) return path;
    }
    return "";
}

// Whether the host has an emulator registered that needs no path inside.
bool hostHas(const std::string& emulator) {
    const std::string folder = "/proc/sys/fs/binfmt_misc";
    DIR* entries = opendir(folder.c_str());
    if (entries == nullptr) return false;
    bool found = false;
    for (const dirent* entry = readdir(entries); entry != nullptr; entry = readdir(entries)) {
        std::string text;
        if (readTextFile(folder + "/" + entry->d_name, &text) != 0) continue;
        const size_t flags = text.find("\nflags: ");
        found =
            found ||
            (text.compare(0, 8, "enabled\n") == 0 && text.find("/" + emulator + "\n") != std::string::npos &&
             flags != std::string::npos &&
             text.substr(flags + 8, text.find('\n', flags + 8) - flags - 8).find('F') != std::string::npos);
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
    const std::string emulator = findEmulator(name);
    // Without a user namespace, a registration would be one for the whole host.
    if (hasUserNamespace && !emulator.empty() && registerEmulator(header, emulator, scratch) == 0) return 0;
    if (hostHas(name)) return 0;
    complain("the device's programs are of another processor, and " + name +
             (emulator.empty() ? ", which runs them, is not installed (Debian's package qemu-user-static)"
                               : " cannot be registered for it: that needs Linux 6.7, or Debian's packages "
                                 "qemu-user-static and binfmt-support, which register it for the host"));
    return ENOEXEC;
}

}  // namespace rovusim
