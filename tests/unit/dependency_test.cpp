#include "image_selection.h"
#include "unit_test.h"

namespace {

using Dep = UpdateSpecVer1::Dep;

constexpr PackedVersion version(uint64_t a, uint64_t b = 0, uint64_t c = 0, uint64_t d = 0) {
    return a << 48 | b << 32 | c << 16 | d;
}

bool holds(const std::vector<Dep>& deps, PackedVersion tested) {
    return checkDeps(static_cast<uint32_t>(deps.size()), deps.data(), tested);
}

// What stays of a script and images of kernel version 2 and rootfs version 3, on a device that runs kernel
// version 5 and rootfs version 1; or why they may not run. `images` holds three characters for each image:
// its kind, mandatory or optional, and the version that its list asks of the other kind; 0: any.
std::string selected(const std::string& images) {
    const LogCapture log;
    auto* spec = static_cast<UpdateSpecVer1*>(calloc(1, sizeof(UpdateSpecVer1)));
    initParts(spec);
    EXPECT_TRUE(appendPart(spec, UpdateSpecVer1::Part()));
    for (size_t i = 0; i < images.size(); i += 4) {
        const PackedVersion needed = version(static_cast<unsigned int>(images[i + 2] - '0'));
        UpdateSpecVer1::Part part = {};
        part.type = images[i] == 'K' ? UpdateSpecVer1::eTypeKernel : UpdateSpecVer1::eTypeRootfs;
        part.img.update =
            images[i + 1] == 'm' ? UpdateSpecVer1::eUpdateMandatory : UpdateSpecVer1::eUpdateOptional;
        part.img.version = version(images[i] == 'K' ? 2 : 3);
        part.img.depCount = needed == 0 ? 0 : 1;
        part.img.deps = static_cast<Dep*>(calloc(1, sizeof(Dep)));
        *part.img.deps = {part.type, false, needed, needed};
        EXPECT_TRUE(appendPart(spec, part));
    }
    const bool good = selectImages(spec, {version(5), version(1)});
    std::string left;
    for (auto* part = firstPart(spec); part != nullptr; part = nextPart(spec, part))
        left += "SKR"[part->type];
    freeSpec(spec);
    return good ? left + log.messages() : std::regex_replace(log.messages(), std::regex("ROVU: |\n"), "");
}

}  // namespace

TEST(Dependencies, EveryEntryMustHoldForTheVersion) {
    const Dep from1To2 = {UpdateSpecVer1::eTypeKernel, false, version(1), version(2)};
    const Dep from16To3 = {UpdateSpecVer1::eTypeRootfs, false, version(1, 6), version(3)};
    const Dep not15To16 = {UpdateSpecVer1::eTypeKernel, true, version(1, 5), version(1, 6)};
    EXPECT_TRUE(holds({}, 0));
    EXPECT_TRUE(holds({from1To2}, version(1)) && holds({from1To2}, version(2)));
    EXPECT_FALSE(holds({from1To2}, version(0, 65535, 65535, 65535)) ||
                 holds({from1To2}, version(2, 0, 0, 1)));
    EXPECT_FALSE(holds({not15To16}, version(1, 5)) || holds({not15To16}, version(1, 6)));
    EXPECT_TRUE(holds({not15To16}, version(1, 4, 65535)) && holds({not15To16}, version(1, 6, 0, 1)));
    EXPECT_FALSE(holds({from1To2, not15To16}, version(1, 5, 3)));
    EXPECT_TRUE(holds({from1To2, not15To16}, version(1, 4)));
    EXPECT_FALSE(holds({not15To16, from1To2}, version(2, 1)));
    EXPECT_FALSE(holds({from1To2, from16To3}, version(1, 5)) || holds({from1To2, from16To3}, version(2, 5)));
    EXPECT_TRUE(holds({from1To2, from16To3}, version(1, 7)));
    EXPECT_FALSE(holds({from1To2, not15To16, from16To3}, version(1, 6)));
}

TEST(Dependencies, DecideWhichImagesStay) {
    const std::string table =
        " => S | Ko0 => S | Ro9 => S | Ro9 Ko9 => S | Km0 => SK | Km1 => SK | Km3 => no | Rm5 => SR | Rm2 => no | "
        "Rm2 Km3 => SRK | Km1 Rm2 => no | Km3 Rm5 => no | Km0 Ro0 => SK | Ro9 Km1 => SK | Km3 Ro2 => SKR | "
        "Km3 Ro5 => no | Km9 Ro2 => no | Ko0 Rm0 => SR | Ko9 Rm5 => SR | Ko3 Rm2 => SKR | Ko1 Rm2 => no | "
        "Ko3 Rm9 => no | Ko0 Ko0 => twice | Rm0 Km0 Ro0 => twice";
    const auto named = std::regex_replace(table, std::regex("no"), "Update dependencies not met.");
    expectRows(std::regex_replace(named, std::regex("twice"), "Multiple images of a kind."), selected);
}
