// What a spec says about its tars, gathered from scripts and images alike.

#include "spec_view/tars.h"

#include "run/settings.h"

#include <algorithm>

namespace {

TarFacts scriptTarOf(const SpecView& spec) {
    TarFacts tar = {};
    tar.localName = kScriptTar;
    tar.keyPrefix = "script_";
    tar.url = spec.text("script_url");
    tar.hash = spec.text("script_hash");
    tar.limit = spec.number("script_dlsize").value_or(0);
    for (const ScriptView& script : spec.scripts) {
        if (!script.endsRun() && !script.name.empty())
            tar.required.push_back({script.key(), script.name, false});
    }
    return tar;
}

TarFacts imageTarOf(const ImageView& image) {
    TarFacts tar = {};
    tar.localName = image.localName;
    tar.keyPrefix = image.key("");
    tar.url = image.text("url");
    tar.hash = image.text("hash");
    tar.limit = image.number("dlsize").value_or(0);
    tar.kind = image.text("type");
    tar.volumeSize = image.number("imsize").value_or(0);
    tar.version = image.text("version");
    tar.imageMd5 = image.text("image_md5");
    for (const std::string field : {"image", "preinst", "postinst"}) {
        const std::string name = image.text(field);
        if (!name.empty()) tar.required.push_back({image.key(field), name, field == "image"});
    }
    return tar;
}

}  // namespace

uint64_t TarFacts::expectedSize() const {
    if (found) return size;
    return limit > 0 ? static_cast<uint64_t>(limit) : 0;
}

const TarMember* TarFacts::member(const std::string& name) const {
    const auto last = std::find_if(members.rbegin(), members.rend(),
                                   [&name](const TarMember& candidate) { return candidate.name == name; });
    return last == members.rend() ? nullptr : &*last;
}

bool climbs(const std::string& name) {
    return name.compare(0, 1, "/") == 0 || ("/" + name + "/").find("/../") != std::string::npos;
}

Tars tarsOf(const SpecView& spec) {
    Tars tars;
    if (spec.fetchesScriptTar()) tars.push_back(scriptTarOf(spec));
    for (const ImageView& image : spec.images) {
        if (image.hasText("url")) tars.push_back(imageTarOf(image));
    }
    return tars;
}

const TarFacts* findTar(const Tars& tars, const std::string& localName) {
    const auto found = std::find_if(tars.begin(), tars.end(),
                                    [&localName](const TarFacts& tar) { return tar.localName == localName; });
    return found == tars.end() ? nullptr : &*found;
}
