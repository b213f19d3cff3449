// A device, an update and the web between them.

#include "world.h"

#include "support/crypto.h"

#include <algorithm>
#include <sstream>

namespace {

const char* const kVolumes[] = {"k0", "k0_root", "k0_data", "k1", "k1_root", "k1_data"};
constexpr char kFirstReference[] = "/app0/.ubiRefChk1";
constexpr char kSecondReference[] = "/app0/.ubiRefChk2";
// Nobody reads the second file while the first is sound, so it may say something else.
constexpr char kFirstLine[] = "0123456789abcdef0123456789abcdef k0\n";
constexpr char kSecondLine[] = "fedcba9876543210fedcba9876543210 k0\n";

// No script may find an image that was flashed before it.
std::pair<std::string, std::string> tracingScript(const std::string& name) {
    return {name, "[ ! -e /tmp/rovu/kernel.img ] && echo " + name + " >> /tmp/trace\n"};
}

}  // namespace

World::World(const std::string& steps, const rovusim::DeviceOptions& options) : device(options) {
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
    update.steps = split(steps, ' ');
    for (const std::string& step : update.steps) {
        if (update.images.count(step) == 0) update.scripts.push_back(tracingScript(step));
    }
    device.put("/app0/secrets/rovu/preshared", "some " + sampleFileKey() + " more");
    device.put("/etc/ssh/rovu_pub.pem", publicKeyText());
    device.put(kFirstReference, referenceText(kFirstLine));
    device.put(kSecondReference, referenceText(kSecondLine));
    for (const char* name : kVolumes)
        before_[name] = device.volume(name);
}

void World::set(const Field& field) {
    (field.image.empty() ? update.fields : update.images.at(field.image).fields)[field.key] = field.value;
}

void World::publish(const std::string& spec) {
    const std::string text = writeUpdate(update, web.directory(), web.url());
    writeWholeFile(web.directory() + "/spec", spec.empty() ? signedText(text) : spec);
    published_ = true;
}

Strings World::args(const std::string& options) {
    if (!published_) publish();
    Strings args = split(options, ' ');
    args.push_back(web.url() + "/spec");
    return args;
}

Outcome World::run(const std::string& options, const Strings& wrapper) {
    return device.run(args(options), wrapper);
}

void World::expectUntouchedBoot() const {
    EXPECT_EQ(device.bootswitcher(), "0A0A00");
    EXPECT_EQ(device.get(kFirstReference), referenceText(kFirstLine));
    EXPECT_EQ(device.get(kSecondReference), referenceText(kSecondLine));
    for (const char* name : {"k0", "k0_root", "k0_data"})
        EXPECT_TRUE(device.volume(name) == before_.at(name)) << name;
}

std::string World::written() const {
    const std::string brought[] = {kernel, rootfs, device.volume("k0_data")};
    std::string written;
    for (size_t i = 0; i < 3; ++i) {
        const std::string now = device.volume(kVolumes[i + 3]);
        if (now != before_.at(kVolumes[i + 3])) written += now == brought[i] ? "krd"[i] : '?';
    }
    return written;
}

std::string World::trace() const {
    std::string names = device.get("/tmp/trace");
    std::replace(names.begin(), names.end(), '\n', ' ');
    return names.substr(0, names.find_last_not_of(' ') + 1);
}

Strings split(const std::string& text, char separator) {
    std::istringstream stream(text);
    Strings pieces;
    for (std::string piece; std::getline(stream, piece, separator);)
        pieces.push_back(piece);
    return pieces;
}

std::string progressText(const std::string& state) {
    return "\"STATE\":\"" + state + "\",\n\"DL_ATTEMPTS\":\"0\",\n\"DL_PERCENT\":\"0\",\n";
}

std::string referenceText(const std::string& lines) {
    // Fletcher-32 over big-endian words, by the book: sums modulo 65535, with 65535 in the place of 0.
    unsigned int first = 0xFFFF, second = 0xFFFF;
    for (size_t i = 0; i < lines.size(); i += 2) {
        const int low = i + 1 < lines.size() ? lines[i + 1] : 0;
        first = (first + static_cast<unsigned int>(lines[i] << 8 | low)) % 65535;
        second = (second + first) % 65535;
    }
    char text[32];
    snprintf(text, sizeof text, "#FLET32:%04x%04x\n", second == 0 ? 0xFFFF : second,
             first == 0 ? 0xFFFF : first);
    return lines + text;
}
