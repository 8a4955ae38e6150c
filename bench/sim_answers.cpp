// korva-sim-answers: prints a device profile whose `resources` hold exactly what the built-in
// camera answers to the benchmarked requests, so that a gateway configured with it serves the
// same bytes without the simulated camera's own work (the floor of the request path).
//
// The PUT answer is the camera's answer to the channel document it gave on GET. Exits 1 when
// the camera refuses that PUT (its answer would then not be the one a benchmark expects).
#include <json/reader.h>
#include <json/writer.h>

#include <iostream>
#include <string>

#include "gateway/sim/sim_camera.h"

namespace {

Json::Value parsed(const std::string& text) {
    Json::Value root;
    Json::Reader().parse(text, root, false);
    return root;
}

std::string answer(korva::sim::SimCamera& camera, int method, const std::string& path,
                   const std::string& body = {}) {
    korva::host::DeviceRequest request;
    request.method = method;
    request.path = path;
    request.devIndex = "cam-1";
    request.url = path + "?format=json&devIndex=cam-1";
    request.body = body;
    return camera.answer(request);
}

}  // namespace

int main() {
    korva::sim::SimCamera camera("cam-1", 1714550400);
    const std::string channel = "/KORVA/Streaming/channels/101";
    Json::Value resources(Json::objectValue);
    resources["GET /KORVA/System/deviceInfo"] =
        parsed(answer(camera, 0, "/KORVA/System/deviceInfo"));
    const std::string stream = answer(camera, 0, channel);
    resources["GET " + channel] = parsed(stream);
    const Json::Value put = parsed(answer(camera, 1, channel, stream));
    resources["PUT " + channel] = put;
    if (put.isMember("statusCode") && put["statusCode"].asInt() != 1) {
        std::cerr << "korva-sim-answers: the camera refused the PUT: " << put << "\n";
        return 1;
    }
    Json::Value profile(Json::objectValue);
    profile["resources"] = resources;
    std::cout << Json::writeString(Json::StreamWriterBuilder(), profile) << std::endl;
    return 0;
}
