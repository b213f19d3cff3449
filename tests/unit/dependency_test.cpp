#include "support/program.h"
#include "unit_test.h"
#include "update_spec/image_selection.h"

#include <cstdlib>
#include <utility>

namespace {

using Spec = UpdateSpecVer1;
using Dep = Spec::Dep;
using Kinds = std::vector<Spec::PartType>;

// The device, and the images that specs offer it. An image's list asks for a version of the other kind.
constexpr char kInstalledKernel[] = "5", kInstalledRootfs[] = "1", kOfferedKernel[] = "2",
               kOfferedRootfs[] = "3";

enum Need { eAny, eInstalled, eOffered, eNeither };
constexpr bool kMay = false, kMust = true;

struct Image {
    bool mandatory;
    Spec::PartType kind;
    Need need;  // which versions of the other kind the image's list admits
};

Image kernel(bool mandatory, Need need) {
    return {mandatory, Spec::eTypeKernel, need};
}

Image rootfs(bool mandatory, Need need) {
    return {mandatory, Spec::eTypeRootfs, need};
}

Spec::Part partOf(const Image& image) {
    const bool isKernel = image.kind == Spec::eTypeKernel;
    const char* const versions[] = {nullptr, isKernel ? kInstalledRootfs : kInstalledKernel,
                                    isKernel ? kOfferedRootfs : kOfferedKernel, "9"};
    Spec::Part part = {};
    part.type = image.kind;
    part.img.update = image.mandatory ? Spec::eUpdateMandatory : Spec::eUpdateOptional;
    part.img.version = versionOf(isKernel ? kOfferedKernel : kOfferedRootfs);
    if (image.need == eAny) return part;
    part.img.depCount = 1;
    part.img.deps = static_cast<Dep*>(calloc(1, sizeof(Dep)));
    *part.img.deps = {image.kind, false, versionOf(versions[image.need]), versionOf(versions[image.need])};
    return part;
}

// Selects from a script and these images. \return the parts left, if the update may run, and the log.
std::pair<Kinds, std::string> select(const std::vector<Image>& images) {
    const LogCapture log;
    Kinds left;
    auto* spec = static_cast<Spec*>(calloc(1, sizeof(Spec)));
    initParts(spec);
    EXPECT_TRUE(appendPart(spec, Spec::Part()));
    for (const Image& image : images)
        EXPECT_TRUE(appendPart(spec, partOf(image)));
    if (selectImages(spec, {versionOf(kInstalledKernel), versionOf(kInstalledRootfs)})) {
        for (Spec::Part* part = firstPart(spec); part != nullptr; part = nextPart(spec, part))
            left.push_back(part->type);
    }
    freeSpec(spec);
    return {left, log.messages()};
}

}  // namespace

TEST(Dependencies, EveryEntryMustHoldForTheVersion) {
    const Dep from1To2 = {Spec::eTypeKernel, false, versionOf("1"), versionOf("2")};
    const Dep not15To16 = {Spec::eTypeKernel, true, versionOf("1.5"), versionOf("1.6")};
    // The kind of an entry does not count.
    const Dep from16To3 = {Spec::eTypeRootfs, false, versionOf("1.6"), versionOf("3")};
    const struct {
        std::vector<Dep> deps;
        Strings good, bad;
    } rows[] = {
        {{}, {"0"}, {}},
        {{from1To2}, {"1", "2"}, {"0.65535.65535.65535", "2.0.0.1"}},
        {{not15To16}, {"1.4.65535", "1.6.0.1"}, {"1.5", "1.6"}},
        {{from1To2, not15To16}, {"1.4"}, {"1.5.3", "2.1"}},
        {{not15To16, from1To2}, {"1.4"}, {"1.5.3", "2.1"}},
        {{from1To2, not15To16, from16To3}, {"1.7"}, {"1.4", "1.6", "2.5"}},
    };
    for (const auto& row : rows) {
        const uint32_t count = static_cast<uint32_t>(row.deps.size());
        SCOPED_TRACE(count);
        for (const std::string& version : row.good)
            EXPECT_TRUE(checkDeps(count, row.deps.data(), versionOf(version.c_str()))) << version;
        for (const std::string& version : row.bad)
            EXPECT_FALSE(checkDeps(count, row.deps.data(), versionOf(version.c_str()))) << version;
    }
}

TEST(Dependencies, DecideWhichImagesStay) {
    constexpr auto kScript = Spec::eTypeScript, kKernel = Spec::eTypeKernel, kRootfs = Spec::eTypeRootfs;
    const std::string notMet = "ROVU: Update dependencies not met.\n",
                      twice = "ROVU: Multiple images of a kind.\n";
    const struct {
        std::vector<Image> images;
        Kinds left;           // none: the update is refused
        std::string message;  // of the refusal
    } rows[] = {
        // Without a mandatory image there is nothing to do.
        {{}, {kScript}, ""},
        {{rootfs(kMay, eNeither), kernel(kMay, eAny)}, {kScript}, ""},
        // A mandatory image alone is tested against what is installed.
        {{kernel(kMust, eAny)}, {kScript, kKernel}, ""},
        {{kernel(kMust, eInstalled)}, {kScript, kKernel}, ""},
        {{rootfs(kMust, eInstalled)}, {kScript, kRootfs}, ""},
        {{kernel(kMust, eOffered)}, {}, notMet},
        {{rootfs(kMust, eOffered)}, {}, notMet},
        // Two mandatory ones are tested against each other.
        {{rootfs(kMust, eOffered), kernel(kMust, eOffered)}, {kScript, kRootfs, kKernel}, ""},
        {{kernel(kMust, eInstalled), rootfs(kMust, eOffered)}, {}, notMet},
        {{kernel(kMust, eOffered), rootfs(kMust, eInstalled)}, {}, notMet},
        // An optional one is dropped unless the mandatory one needs it.
        {{kernel(kMust, eAny), rootfs(kMay, eAny)}, {kScript, kKernel}, ""},
        {{rootfs(kMay, eNeither), kernel(kMust, eInstalled)}, {kScript, kKernel}, ""},
        {{kernel(kMay, eNeither), rootfs(kMust, eInstalled)}, {kScript, kRootfs}, ""},
        {{kernel(kMust, eOffered), rootfs(kMay, eOffered)}, {kScript, kKernel, kRootfs}, ""},
        {{kernel(kMay, eOffered), rootfs(kMust, eOffered)}, {kScript, kKernel, kRootfs}, ""},
        {{kernel(kMust, eOffered), rootfs(kMay, eInstalled)}, {}, notMet},
        {{kernel(kMay, eInstalled), rootfs(kMust, eOffered)}, {}, notMet},
        {{kernel(kMust, eNeither), rootfs(kMay, eOffered)}, {}, notMet},
        {{kernel(kMay, eOffered), rootfs(kMust, eNeither)}, {}, notMet},
        {{kernel(kMay, eAny), kernel(kMay, eAny)}, {}, twice},
        {{rootfs(kMust, eAny), kernel(kMust, eAny), rootfs(kMay, eAny)}, {}, twice},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE("row " + std::to_string(&row - rows));
        EXPECT_EQ(select(row.images), std::make_pair(row.left, row.message));
    }
}
