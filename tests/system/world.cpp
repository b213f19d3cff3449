#include "world.h"

#include "support/crypto.h"
#include "support/update.h"

#include <algorithm>
#include <sstream>

namespace {

const char* const kVolumes[] = {"k0", "k0_root", "k0_data", "k1", "k1_root", "k1_data"};
constexpr char kFirstReference[] = "/app0/.ubiRefChk1";
constexpr char kSecondReference[] = "/app0/.ubiRefChk2";
// Nobody reads the second file while the first is sound, so it may hold something else.
constexpr char kFirstLine[] = "0123456789abcdef0123456789abcdef k0\n";
constexpr char kSecondLine[] = "fedcba9876543210fedcba9876543210 k0\n";

// No script may find an image that was flashed before it.
std::pair<std::string, std::string> tracingScript(const std::string& name) {
    return {name, "[ ! -e /tmp/rovu/kernel.img ] && echo " + name + " >> /tmp/trace\n"};
}

}  // namespace

World::World(const Strings& steps, const rovusim::DeviceOptions& options) : device(options) {
    setenv("no_proxy", "*", 1);
    update.fields = {
        {"version", "1"}, {"hardware", "'RV-20'"}, {"clone_overlay", "1"}, {"encr_key_offset", "5"}};
    update.fileKey = sampleFileKey();
    update.images["kernel"] = {{{"type", "'kernel'"},
                                {"version", "'4.1'"},
                                {"preinst", "'pre'"},
                                {"postinst", "'post'"},
                                {"dep", "{{'rootfs','2.0','3.9'}}"}},
                               {{"kernel.img", kernel}, tracingScript("pre"), tracingScript("post")}};
    update.images["rootfs"] = {
        {{"type", "'rootfs'"}, {"version", "'3.0.7'"}, {"dep", "{{'kernel','4.0','4.2'}}"}},
        {{"rootfs.img", rootfs}}};
    update.steps = steps;
    for (const std::string& step : update.steps) {
        if (update.images.count(step) == 0) update.scripts.push_back(tracingScript(step));
    }
    device.put("/app0/secrets/rovu/preshared", "some " + sampleFileKey() + " more");
    device.put("/etc/ssh/rovu_pub.pem", publicKeyText());
    device.put(kFirstReference, referenceFile(kFirstLine));
    device.put(kSecondReference, referenceFile(kSecondLine));
    for (const char* name : kVolumes)
        before_[name] = device.volume(name);
}

void World::set(const Field& field) {
    (field.image.empty() ? update.fields : update.images.at(field.image).fields)[field.key] = field.value;
}

void World::publish(const std::string& spec) {
    const std::string written = writeUpdate(update, web.directory(), web.url());
    writeWholeFile(web.directory() + "/spec", spec.empty() ? signedText(written) : spec);
    published_ = true;
}

Strings World::args(const Strings& options) {
    if (!published_) publish();
    Strings args = options;
    args.push_back(web.url() + "/spec");
    return args;
}

Outcome World::run(const Strings& options, const Strings& wrapper) {
    return device.run(args(options), wrapper);
}

void World::expectUntouchedBoot() const {
    EXPECT_EQ(device.bootswitcher(), "0A0A00");
    EXPECT_EQ(device.get(kFirstReference), referenceFile(kFirstLine));
    EXPECT_EQ(device.get(kSecondReference), referenceFile(kSecondLine));
    for (const char* name : {"k0", "k0_root", "k0_data"})
        EXPECT_TRUE(device.volume(name) == before_.at(name)) << name;
}

Strings World::written() const {
    const std::string brought[] = {kernel, rootfs, device.volume("k0_data")};
    Strings written;
    for (size_t i = 0; i < 3; ++i) {
        const std::string name = kVolumes[i + 3], now = device.volume(name);
        if (now != before_.at(name)) written.push_back(name + (now == brought[i] ? "" : "?"));
    }
    return written;
}

Strings World::trace() const {
    return split(device.get("/tmp/trace"), '\n');
}

Strings split(const std::string& list, char separator) {
    std::istringstream stream(list);
    Strings pieces;
    for (std::string piece; std::getline(stream, piece, separator);)
        pieces.push_back(piece);
    return pieces;
}

std::string progressFile(const std::string& state) {
    return "\"STATE\":\"" + state + "\",\n\"DL_ATTEMPTS\":\"0\",\n\"DL_PERCENT\":\"0\",\n";
}
