// The result as JSON. Keys keep the order in which they are written here.

#include "reports/findings.h"
#include "reports/reports.h"

#include <nlohmann/json.hpp>

namespace {

using Json = nlohmann::ordered_json;

Json textOrNull(const std::string& text) {
    return text.empty() ? Json(nullptr) : Json(text);
}

Json roomJson(const RoomNeed& room) {
    return {{"download_bytes", room.download},     {"tar_bytes", room.tars}, {"member_bytes", room.extracted},
            {"peak_bytes", room.peak()},           {"exact", room.isExact},  {"known", room.isKnown},
            {"clones_overlay", room.clonesOverlay}};
}

Json numberOrNull(const std::optional<uint64_t>& number) {
    return number ? Json(*number) : Json(nullptr);
}

Json fitOrNull(Fit fit) {
    return fit == eFitUnknown ? Json(nullptr) : Json(fit == eFits);
}

// What the device has, what of it the update needs, and whether that fits.
Json deviceRoomJson(const FleetRow& row) {
    const DeviceRoom& room = row.device.room;
    const bool needsLebs = row.accepts() && room.lebSize;
    return {{"tmp_bytes", numberOrNull(room.tmp)},
            {"data_bytes", numberOrNull(room.data)},
            {"free_lebs", numberOrNull(room.freeLebs)},
            {"leb_bytes", numberOrNull(room.lebSize)},
            {"needs_tmp_bytes", row.room.peak()},
            {"needs_lebs", needsLebs ? Json(row.room.lebs(*room.lebSize)) : Json(nullptr)},
            {"fits_tmp", fitOrNull(fitsTmp(row.room, room))},
            {"fits_lebs", row.accepts() ? fitOrNull(fitsLebs(row.room, room)) : Json(nullptr)}};
}

Json bootJson(const BootVolume& volume) {
    return {{"volume", volume.volume},
            {"kind", volume.kind},
            {"content", contentText(volume.content)},
            {"version", textOrNull(volume.version)},
            {"refused_by", textOrNull(volume.refusedBy)}};
}

Json planJson(const Plan& plan) {
    Json states = Json::array();
    for (const PlanStage& stage : plan.stages)
        states.push_back({{"state", stateName(stage.state)}, {"subject", stage.subject}});
    Json steps = Json::array();
    for (const PlanStep& step : plan.steps) {
        Json words = Json::array();
        for (const std::string& word : step.words)
            words.push_back(word);
        steps.push_back({{"state", stateName(step.state)}, {"command", step.line}, {"words", words}});
    }
    Json boots = Json::array();
    for (const BootVolume& volume : plan.boots)
        boots.push_back(bootJson(volume));
    return {{"active_set", plan.activeSet},
            {"switches", plan.switches},
            {"volumes", plan.volumes},
            {"boots", boots},
            {"states", states},
            {"steps", steps}};
}

Json deviceJson(const FleetRow& row) {
    Json images = Json::array();
    for (const ImageChoice& choice : row.selection.images) {
        images.push_back({{"kind", choice.kind},
                          {"tar", choice.localName},
                          {"outcome", outcomeText(choice.outcome)},
                          {"test", choice.test}});
    }
    return {{"model", row.device.model},
            {"kernel", row.device.kernel},
            {"rootfs", row.device.rootfs},
            {"inactive_kernel", textOrNull(row.device.inactive.kernel)},
            {"inactive_rootfs", textOrNull(row.device.inactive.rootfs)},
            {"accepts", row.accepts()},
            {"refusal", textOrNull(row.selection.refusal)},
            {"images", images},
            {"room", roomJson(row.room)},
            {"device_room", deviceRoomJson(row)},
            {"plans", {planJson(row.plans[0]), planJson(row.plans[1])}}};
}

}  // namespace

std::string faultJson(const Fault& fault) {
    return jsonText({{"error", fault.message()}});
}

std::string checkJson(const CheckResult& result) {
    Json devices = Json::array();
    for (const FleetRow& row : result.fleet)
        devices.push_back(deviceJson(row));
    Json whole = {{"spec", result.spec.path}};
    addFindings(result.findings, &whole);
    whole["room"] = roomJson(result.room);
    whole["devices"] = devices;
    return jsonText(whole);
}
