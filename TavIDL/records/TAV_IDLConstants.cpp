#include <TavIDL/records/TAV_IDLConstants.h>

const TAV_IDLConstants g_TAV_IDL_constants;

TAV_IDLConstants::TAV_IDLConstants() {
}
