// SPDX-License-Identifier: Apache-2.0
// The log descriptor section. Records 3 to 5 belong to other components of the device that share
// these definitions; nothing in this library raises them.
#include "logmsg/LogMessages.h"

namespace Vestrel {

// One array, so that the records lie back to back whatever the compiler orders.
__attribute__((section(".norvale_logmsg"),
               used)) constinit const std::array<Zell::LogDescriptor, logMessageCount>
    logDescriptors{{
        {
            "VESTREL_INTEGRITY_LOAD_KEY_FAIL",
            "Failed to load certificate %s in keyring (%s). %s.",
            "The certificate could not be loaded in the keyring",
            Zell::contactSupportIfItPersists,
            Zell::severityWarning,
            0,
        },
        {
            "VESTREL_INTEGRITY",
            "Integrity error of type %s (%s), for file %s, invoked by %s",
            // The spelling is part of the catalogue text.
            "The Integrity Measurement Architecture (IMA) apparaisal raised a warning",
            Zell::contactSupportIfItPersists,
            Zell::severityWarning,
            0,
        },
        {
            "VESTREL_WARNING",
            "%s is currently %s (default: %s)",
            "A configuration value differs from its manufacturing default. It is advised to "
            "keep the manufacturing defaults.",
            "If this setting was not intentionally modified, please contact support for "
            "assistance restoring the default setting.",
            Zell::severityWarning,
            0,
        },
        {
            "MEASUREDBOOT_PCR_CONFIG_WARNING",
            "Error found in PCR bank config. Measured boot functionality may be limited. "
            "Please check PCR bank config. Reason: %s",
            "Error found in PCR bank config.",
            "Check PCR bank config",
            Zell::severityWarning,
            0,
        },
        {
            "BOOT_LOADER_DEPRECATION_WARNING",
            "%s is deprecated because its secure boot certificate is about to expire.",
            "A component of the boot loader is signed by a certificate that expires.",
            Zell::noActionIsRequired,
            Zell::severityWarning,
            0,
        },
    }};

} // namespace Vestrel
