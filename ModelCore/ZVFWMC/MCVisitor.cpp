#include "ModelCore/ZVFWMC/MCVisitor.h"

MCVisitor::~MCVisitor() = default;

void MCVisitor::Visit(MCObject* /*object*/) {}
