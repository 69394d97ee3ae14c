#include "MDMFidCreator.h"

MDMFidCreator::MDMFidCreator() = default;

MDMFidCreator::~MDMFidCreator() = default;
