#pragma once
#include <Availability.h>
