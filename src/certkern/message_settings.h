// What the configuration says about signed messages; each is read once.
#ifndef CERTKERN_CERTKERN_MESSAGE_SETTINGS_H
#define CERTKERN_CERTKERN_MESSAGE_SETTINGS_H

namespace certkern {

// Content is hashed by the provider that holds the signing key, not by the default one of the algorithm.
bool HashesWithSigner();
// Signed attributes are encoded anew before their signature is checked, not taken as they came.
bool EncodesAttributesAnew();

}  // namespace certkern

#endif
