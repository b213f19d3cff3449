// For the boot script: makes the target VM's disk, and reads the variables in its environment and the volumes on its
// flash.

#include "disk.h"
#include "environment.h"
#include "ubi_image.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

namespace {

int printVariable(const char* path, const char* name) {
    std::string value;
    if (int rc = readVariable(path, name, &value, kEnvironment); rc != 0) return rc;
    return puts(value.c_str()) < 0 ? EIO : 0;
}

int listVolumes(const UbiImage& image) {
    for (const UbiVolume& volume : image.volumes)
        printf("%u %s %s %u%s\n", volume.id, volume.name.c_str(), volume.isStatic ? "static" : "dynamic",
               volume.reserved, volume.updating ? " updating" : "");
    return 0;
}

int printVolume(const UbiImage& image, const char* name) {
    const UbiVolume* volume = findUbiVolume(image, name);
    if (volume == nullptr) return ENOENT;
    std::string data;
    if (int rc = readStaticVolume(image, *volume, &data); rc != 0) return rc;
    return fwrite(data.data(), 1, data.size(), stdout) == data.size() ? 0 : EIO;
}

int run(int argc, char** argv) {
    if (strcmp(argv[1], "create") == 0) return createDisk(argv[2], argv[3]);
    if (strcmp(argv[1], "variable") == 0) return printVariable(argv[2], argv[3]);
    UbiImage image;
    if (int rc = readUbiImage(argv[2], kFlashBlockSize, &image, kFlash); rc != 0) return rc;
    return argc == 3 ? listVolumes(image) : printVolume(image, argv[3]);
}

bool isUsage(int argc, char** argv) {
    if (argc == 3) return strcmp(argv[1], "volume") == 0;
    if (argc != 4) return false;
    for (const char* command : {"create", "variable", "volume"}) {
        if (strcmp(argv[1], command) == 0) return true;
    }
    return false;
}

}  // namespace

int main(int argc, char** argv) {
    if (!isUsage(argc, argv)) {
        fputs("usage: rovu-vm-image create DISK APP0_IMAGE   makes a disk with an empty flash\n"
              "       rovu-vm-image variable DISK NAME       prints a variable of the environment\n"
              "       rovu-vm-image volume DISK              lists the volumes on the flash\n"
              "       rovu-vm-image volume DISK NAME         prints what a static one holds\n",
              stderr);
        return 2;
    }
    int rc = run(argc, argv);
    if (fflush(stdout) != 0 && rc == 0) rc = errno;
    if (rc != 0) fprintf(stderr, "rovu-vm-image: %s: %s\n", argv[argc - 1], strerror(rc));
    return rc == 0 ? 0 : 1;
}
