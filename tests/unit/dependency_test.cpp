#include "image_selection.h"
#include "unit_test.h"

#include <cstdlib>
#include <tuple>

namespace {

using Spec = UpdateSpecVer1;
using Dep = Spec::Dep;
using Kinds = std::vector<Spec::PartType>;

Dep between(const char* min, const char* max, Spec::PartType kind = Spec::eTypeKernel) {
    return {kind, false, versionOf(min), versionOf(max)};
}

Dep notBetween(const char* min, const char* max) {
    return {Spec::eTypeKernel, true, versionOf(min), versionOf(max)};
}

// The device, and the images that specs offer it. An image's list asks for a version of the other kind.
constexpr char kInstalledKernel[] = "5", kInstalledRootfs[] = "1", kOfferedKernel[] = "2",
               kOfferedRootfs[] = "3";

enum Need { eAny, eInstalled, eOffered, eNeither };

struct Image {
    Spec::Update update;
    Spec::PartType kind;
    Need need = eAny;  // which versions of the other kind the image's list admits
};

constexpr Image kernel(Need need) {
    return {Spec::eUpdateOptional, Spec::eTypeKernel, need};
}

constexpr Image rootfs(Need need) {
    return {Spec::eUpdateOptional, Spec::eTypeRootfs, need};
}

constexpr Image mandatory(Image image) {
    return {Spec::eUpdateMandatory, image.kind, image.need};
}

std::string nameOf(const std::vector<Image>& images) {
    const char* const kNeeds[] = {"nothing", "what is installed", "what is offered", "neither version"};
    std::string name = "the spec's images:";
    for (const Image& image : images) {
        name += image.update == Spec::eUpdateMandatory ? " mandatory" : " optional";
        name += (image.kind == Spec::eTypeKernel ? " kernel, needs "s : " rootfs, needs "s) +
                kNeeds[image.need] + ";";
    }
    return name;
}

Spec::Part partOf(const Image& image) {
    const bool isKernel = image.kind == Spec::eTypeKernel;
    const char* const versions[] = {nullptr, isKernel ? kInstalledRootfs : kInstalledKernel,
                                    isKernel ? kOfferedRootfs : kOfferedKernel, "9"};
    Spec::Part part = {};
    part.type = image.kind;
    part.img.update = image.update;
    part.img.version = versionOf(isKernel ? kOfferedKernel : kOfferedRootfs);
    if (image.need == eAny) return part;
    part.img.depCount = 1;
    part.img.deps = static_cast<Dep*>(calloc(1, sizeof(Dep)));
    *part.img.deps = between(versions[image.need], versions[image.need], image.kind);
    return part;
}

// Selects from a script and these images. \return whether the update may run, the parts left, and the log.
std::tuple<bool, Kinds, std::string> select(const std::vector<Image>& images) {
    const LogCapture log;
    Kinds left;
    auto* spec = static_cast<Spec*>(calloc(1, sizeof(Spec)));
    initParts(spec);
    EXPECT_TRUE(appendPart(spec, Spec::Part()));
    for (const Image& image : images)
        EXPECT_TRUE(appendPart(spec, partOf(image)));
    const bool good = selectImages(spec, {versionOf(kInstalledKernel), versionOf(kInstalledRootfs)});
    for (Spec::Part* part = firstPart(spec); part != nullptr; part = nextPart(spec, part))
        left.push_back(part->type);
    freeSpec(spec);
    return {good, left, log.messages()};
}

}  // namespace

TEST(Dependencies, EveryEntryMustHoldForTheVersion) {
    const Dep from1To2 = between("1", "2"), not15To16 = notBetween("1.5", "1.6"),
              from16To3 = between("1.6", "3", Spec::eTypeRootfs);
    const struct {
        const char* version;
        std::vector<Dep> deps;
        bool holds;
    } rows[] = {
        {"0", {}, true},
        {"1", {from1To2}, true},
        {"2", {from1To2}, true},
        {"0.65535.65535.65535", {from1To2}, false},
        {"2.0.0.1", {from1To2}, false},
        {"1.5", {not15To16}, false},
        {"1.6", {not15To16}, false},
        {"1.4.65535", {not15To16}, true},
        {"1.6.0.1", {not15To16}, true},
        {"1.5.3", {from1To2, not15To16}, false},
        {"1.4", {from1To2, not15To16}, true},
        {"2.1", {not15To16, from1To2}, false},
        // The kind of an entry does not count.
        {"1.5", {from1To2, from16To3}, false},
        {"2.5", {from1To2, from16To3}, false},
        {"1.7", {from1To2, from16To3}, true},
        {"1.6", {from1To2, not15To16, from16To3}, false},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.version + " against entries: "s + std::to_string(row.deps.size()));
        const uint32_t count = static_cast<uint32_t>(row.deps.size());
        EXPECT_EQ(checkDeps(count, row.deps.data(), versionOf(row.version)), row.holds);
    }
}

TEST(Dependencies, DecideWhichImagesStay) {
    const Kinds scriptOnly = {Spec::eTypeScript}, andKernel = {Spec::eTypeScript, Spec::eTypeKernel},
                andRootfs = {Spec::eTypeScript, Spec::eTypeRootfs},
                andKernelAndRootfs = {Spec::eTypeScript, Spec::eTypeKernel, Spec::eTypeRootfs},
                andRootfsAndKernel = {Spec::eTypeScript, Spec::eTypeRootfs, Spec::eTypeKernel};
    const struct {
        std::vector<Image> images;
        Kinds left;
    } rows[] = {
        // Without a mandatory image there is nothing to do.
        {{}, scriptOnly},
        {{kernel(eAny)}, scriptOnly},
        {{rootfs(eNeither)}, scriptOnly},
        {{rootfs(eNeither), kernel(eNeither)}, scriptOnly},
        // A mandatory image alone is tested against what is installed.
        {{mandatory(kernel(eAny))}, andKernel},
        {{mandatory(kernel(eInstalled))}, andKernel},
        {{mandatory(rootfs(eInstalled))}, andRootfs},
        // Two mandatory ones are tested against each other.
        {{mandatory(rootfs(eOffered)), mandatory(kernel(eOffered))}, andRootfsAndKernel},
        // An optional one is dropped unless the mandatory one needs it.
        {{mandatory(kernel(eAny)), rootfs(eAny)}, andKernel},
        {{rootfs(eNeither), mandatory(kernel(eInstalled))}, andKernel},
        {{mandatory(kernel(eOffered)), rootfs(eOffered)}, andKernelAndRootfs},
        {{kernel(eAny), mandatory(rootfs(eAny))}, andRootfs},
        {{kernel(eNeither), mandatory(rootfs(eInstalled))}, andRootfs},
        {{kernel(eOffered), mandatory(rootfs(eOffered))}, andKernelAndRootfs},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(nameOf(row.images));
        EXPECT_EQ(select(row.images), std::make_tuple(true, row.left, ""s));
    }
}

TEST(Dependencies, RefuseAnUpdateWhoseImagesDoNotFit) {
    const std::string notMet = "ROVU: Update dependencies not met.\n",
                      twice = "ROVU: Multiple images of a kind.\n";
    const struct {
        std::vector<Image> images;
        std::string message;
    } rows[] = {
        {{mandatory(kernel(eOffered))}, notMet},
        {{mandatory(rootfs(eOffered))}, notMet},
        {{mandatory(kernel(eInstalled)), mandatory(rootfs(eOffered))}, notMet},
        {{mandatory(kernel(eOffered)), mandatory(rootfs(eInstalled))}, notMet},
        {{mandatory(kernel(eOffered)), rootfs(eInstalled)}, notMet},
        {{mandatory(kernel(eNeither)), rootfs(eOffered)}, notMet},
        {{kernel(eInstalled), mandatory(rootfs(eOffered))}, notMet},
        {{kernel(eOffered), mandatory(rootfs(eNeither))}, notMet},
        {{kernel(eAny), kernel(eAny)}, twice},
        {{mandatory(rootfs(eAny)), mandatory(kernel(eAny)), rootfs(eAny)}, twice},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(nameOf(row.images));
        const auto [good, left, messages] = select(row.images);
        EXPECT_FALSE(good);
        EXPECT_EQ(messages, row.message);
    }
}
