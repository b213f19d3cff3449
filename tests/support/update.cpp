#include "support/update.h"

#include "support/crypto.h"
#include "support/program.h"
#include "support/update.h"

#include <cstdio>

uint32_t fletcher32(const std::string& bytes) {
    // Both sums are modulo 65535, with 65535 in the place of 0.
    uint32_t first = 0, second = 0;
    for (size_t i = 0; i < bytes.size(); i += 2) {
        const uint32_t high = static_cast<unsigned char>(bytes[i]);
        const uint32_t low = i + 1 < bytes.size() ? static_cast<unsigned char>(bytes[i + 1]) : 0;
        first = (first + (high << 8 | low)) % 65535;
        second = (second + first) % 65535;
    }
    return (second == 0 ? 65535 : second) << 16 | (first == 0 ? 65535 : first);
}

std::string referenceFile(const std::string& lines) {
    char line[32];
    snprintf(line, sizeof line, "#FLET32:%08x\n", static_cast<unsigned int>(fletcher32(lines)));
    return lines + line;
}

namespace {

std::string quoted(const std::string& text) {
    return "'" + text + "'";
}

// The same members give the same bytes, whenever and by whomever the tar is made.
std::string makeTar(const TarMembers& members) {
    const ScratchDir scratch;
    Strings command = {"tar",       "--format=ustar",  "--mtime=@0", "--mode=0644",
                       "--owner=0", "--group=0",       "-cf",        scratch.path + "/tar",
                       "-C",        scratch.path + "/"};
    for (const auto& member : members) {
        writeWholeFile(scratch.path + "/" + member.first, member.second);
        command.push_back(member.first);
    }
    Program(command).wait();
    return readWholeFile(scratch.path + "/tar");
}

std::string luaText(const LuaFields& fields) {
    std::string text;
    for (const auto& field : fields)
        text += field.first + "=" + field.second + ",\n";
    return text;
}

// Makes a tar, and the fields `prefix`url, `prefix`hash and `prefix`dlsize that speak of it.
void addTar(LuaFields* fields, const Update& update, const TarMembers& members, const std::string& prefix,
            const std::string& path, const std::string& url) {
    std::string bytes = makeTar(members);
    if (!update.fileKey.empty()) bytes = encrypted(bytes, update.fileKey);
    writeWholeFile(path, bytes);
    fields->insert({{prefix + "url", quoted(url)},
                    {prefix + "hash", quoted(sha256Hex(bytes))},
                    {prefix + "dlsize", std::to_string(bytes.size())}});
}

}  // namespace

std::string imageBytes(const std::string& version, size_t size) {
    std::string bytes = "version=" + version + "\n";
    for (unsigned int value = 1; bytes.size() < size; value = value * 1103515245 + 12345)
        bytes += static_cast<char>(value >> 24);
    return bytes;
}

std::string writeUpdate(const Update& update, const std::string& directory, const std::string& url) {
    LuaFields fields = update.fields;
    addTar(&fields, update, update.scripts, "script_", directory + "/scripts", url + "/scripts");
    std::string steps;
    for (const std::string& step : update.steps) {
        const auto found = update.images.find(step);
        if (found == update.images.end()) {
            steps += quoted(step) + ",\n";
            continue;
        }
        const auto& member = found->second.members.front();
        LuaFields image = found->second.fields;
        image.insert({{"update", "'mandatory'"},
                      {"image", quoted(member.first)},
                      {"image_md5", quoted(md5Hex(member.second))},
                      {"imsize", std::to_string(member.second.size())}});
        addTar(&image, update, found->second.members, "", directory + "/" + step, url + "/" + step);
        steps += "{" + luaText(image) + "},\n";
    }
    return "{\n" + luaText(fields) + steps + "}\n";
}
