// A fleet moves to a new key: an update under the old one brings it, and from then on the old one is worth nothing.
// What rovu-pack makes, the real program takes on a simulated device.

#include "pack_shell.h"
#include "support/device.h"
#include "support/update.h"
#include "support/web_server.h"

#include <cerrno>

namespace {

constexpr char kKeyFile[] = "/etc/ssh/rovu_pub.pem";
constexpr char kFirstLines[] = "set -eu\nkey=/etc/ssh/rovu_pub.pem\ncat >$key.new <<'END'\n";
constexpr char kLastLines[] = "END\nsync\nmv $key.new $key\nsync\n";

class KeyRotation : public PackShell {
protected:
    KeyRotation() {
        setenv("no_proxy", "*", 1);
        EXPECT_EQ(shell("$PACK keygen old && $PACK keygen new"), 0) << said();
        put("new_key.sh", kFirstLines + read("new/rovu_pub.pem") + kLastLines);
        put("k.img", imageBytes("4.1", 1000));
        put("r.img", imageBytes("3.0", 1000));
        device_.put(kKeyFile, read("old/rovu_pub.pem"));
    }

    // What the update does, made under the old key and signed again with the new one.
    void publish(const std::string& steps) const {
        put("m.lua", "{ version = 1, hardware = 'RV-20', clone_overlay = 1, " + steps + " }\n");
        EXPECT_EQ(
            shell("$PACK build m.lua --out '" + web_.directory() + "' --key old/private.pem --base-url " +
                  web_.url() + " && cd '" + web_.directory() + "' && cp update.lua old.lua &&" +
                  " cp update.lua new.lua && $PACK sign new.lua --key '" + pathOf("new/private.pem") + "'"),
            0)
            << said();
    }

    int update(const std::string& key) {
        outcome_ = device_.run({web_.url() + "/" + key + ".lua"});
        return outcome_.status;
    }

    bool wasRefused() const {
        return outcome_.status == 1 && outcome_.said("Signature verification of /tmp/rovu/rovu.lua failed: " +
                                                     std::to_string(EBADMSG));
    }

    bool hasNewKey() const { return device_.get(kKeyFile) == read("new/rovu_pub.pem"); }

    WebServer web_;
    Device device_;
    Outcome outcome_;
};

constexpr char kImages[] = "{ type = 'kernel', update = 'mandatory', version = '4.1', image = 'k.img' },"
                           "{ type = 'rootfs', update = 'mandatory', version = '3.0', image = 'r.img' }";

TEST_F(KeyRotation, OnlyTheNewKeyCountsOnceItIsThere) {
    publish("'new_key.sh', 'exit_success'");
    EXPECT_TRUE(update("new") == 1 && wasRefused());
    EXPECT_EQ(update("old"), 0) << outcome_.out;
    EXPECT_TRUE(hasNewKey());
    publish(kImages);
    EXPECT_TRUE(update("old") == 1 && wasRefused());
    EXPECT_EQ(device_.bootswitcher(), "0A0A00");
    EXPECT_EQ(update("new"), 0) << outcome_.out;
    EXPECT_EQ(device_.bootswitcher(), "0A0A01");
}

}  // namespace
