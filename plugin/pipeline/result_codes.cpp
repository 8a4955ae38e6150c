// From the result codes of the host's buses and of the handlers' conversions to error numbers.
#include "plugin/pipeline/error_catalogue.h"

namespace QXKORVAProtocol {
namespace {

struct ResultMapping {
    int result;
    uint32_t errorNumber;
};

constexpr ResultMapping kResultMappings[] = {
    {0, kErrorOk},
    {1, kErrorBadParameters},
    {2, 0x40001007},  // fileAlreadyExists
    {3, 0x400010EA},  // writeFileError
    {4, kErrorBadParameters},
    {5, 0x4000108D},  // noMoreCamerasAdded
    {6, 0x40001054},  // deviceExist
    {7, kErrorBadParameters},
    {8, kErrorBadParameters},
    {9, kErrorInternal},
    {10, kErrorNoMoreTasks},
    {256, 0x6000005F},  // passworLlenNoMoreThan16
    {257, 0x60000015},  // riskPassword
    {258, 0x400010E7},  // passError
    {259, 0x400010E8},  // cannotSameAsOldPassword
    {260, 0x6000000B},  // badPort
    {261, kErrorBadParameters},
    {262, kErrorBadParameters},
    {263, 0x40000008},  // hasActivated
    {264, kErrorBadParameters},
    {265, kErrorBadParameters},
    {272, kErrorBadParameters},
    {273, 0x40001187},  // settingAlgorithmTypeForDeviceFailed
    {274, kErrorInvalidOperation},
    {512, kErrorBadParameters},
    {513, kErrorBadParameters},
    {514, 0x40001014},  // openFileError
    {515, kErrorInvalidOperation},
    {516, 0x40000009},  // certificateAlreadyExist
    {517, 0x40001014},  // openFileError
    {518, 0x40001014},  // openFileError
};

}  // namespace

uint32_t getErrorNoByResult(int result) {
    for (const ResultMapping& mapping : kResultMappings) {
        if (mapping.result == result) return mapping.errorNumber;
    }
    return kErrorInternal;
}

}  // namespace QXKORVAProtocol
