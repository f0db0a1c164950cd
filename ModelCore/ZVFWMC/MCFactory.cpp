#include "ModelCore/ZVFWMC/MCFactory.h"

MCFactory::~MCFactory() = default;
