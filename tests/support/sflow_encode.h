// Writing statistics files as the appliance's sFlow agent does, for the
// agent simulator, the tests and the benchmarks.
#pragma once

#include "client/sflow.h"

void sflow_encode_header(const sflow_header &h, uint8_t *p);
void sflow_encode_host(const sflow_host &h, uint8_t *p);
void sflow_encode_record(const sflow_record &r, uint8_t *p);
