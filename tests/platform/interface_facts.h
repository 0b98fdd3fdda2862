/*
 * Numbers and layouts of the interface that compiled shader libraries carry in them. They must hold whatever
 * else is changed in the headers; a compile error here names the fact that broke.
 */
#ifndef INTERFACE_FACTS_H
#define INTERFACE_FACTS_H

#include "shader.h"

#define FACT(name, condition) typedef char fact_##name[(condition) ? 1 : -1]

FACT(widths, sizeof(miBoolean) == 4 && sizeof(miInteger) == 4 && sizeof(miScalar) == 4 &&
                 sizeof(miTag) == 4 && sizeof(miCBoolean) == 1 && sizeof(miUint) == 4);
FACT(colour_is_four_scalars, sizeof(miColor) == 16);
FACT(vector_is_three_scalars, sizeof(miVector) == 12);
FACT(matrix_is_sixteen_scalars, sizeof(miMatrix) == 64);
FACT(enumerations_are_ints, sizeof(miRay_type) == 4 && sizeof(miShader_type) == 4 && sizeof(miQ_type) == 4);

FACT(ray_types, miRAY_EYE == 0 && miRAY_TRANSPARENT == 1 && miRAY_REFLECT == 2 && miRAY_REFRACT == 3 &&
                    miRAY_LIGHT == 4 && miRAY_SHADOW == 5 && miRAY_ENVIRONMENT == 6 && miRAY_DISPLACE == 16 &&
                    miRAY_LM_VERTEX == 21 && miRAY_LM_MESH == 22);
FACT(photon_types, miPHOTON_REFLECT_SPECULAR == 10 && miPHOTON_REFLECT_DIFFUSE == 12 &&
                       miPHOTON_TRANSMIT_SPECULAR == 13 && miPHOTON_TRANSMIT_DIFFUSE == 15);

/* The photon class is 8 to 15, 18, 19, 23, 24 and 27; the neighbours of each run are not in it. */
FACT(photon_class, miRAY_PHOTON(8) && miRAY_PHOTON(15) && miRAY_PHOTON(18) && miRAY_PHOTON(19) &&
                       miRAY_PHOTON(23) && miRAY_PHOTON(24) && miRAY_PHOTON(27));
FACT(not_photon_class, !miRAY_PHOTON(0) && !miRAY_PHOTON(7) && !miRAY_PHOTON(16) && !miRAY_PHOTON(17) &&
                           !miRAY_PHOTON(20) && !miRAY_PHOTON(22) && !miRAY_PHOTON(25) && !miRAY_PHOTON(26) &&
                           !miRAY_PHOTON(28) && !miRAY_PHOTON(40));

FACT(call_types, miSHADER_LENS == 0 && miSHADER_MATERIAL == 1 && miSHADER_SHADOW == 3 &&
                     miSHADER_ENVIRONMENT == 4 && miSHADER_VOLUME == 5 && miSHADER_TEXTURE == 6 &&
                     miSHADER_PHOTON == 7 && miSHADER_DISPLACE == 9 && miSHADER_LIGHTMAP == 13 &&
                     miSHADER_PHOTONVOL == 14 && miSHADER_CONTOUR == 16);
FACT(element_types, miSCENE_FUNCTION == 2 && miSCENE_MATERIAL == 3 && miSCENE_IMAGE == 13);
FACT(parameter_types, miTYPE_BOOLEAN == 0 && miTYPE_TRANSFORM == 6 && miTYPE_SHADER == 7 &&
                          miTYPE_STRUCT == 12 && miTYPE_ARRAY == 13 && miTYPE_MATERIAL == 15 &&
                          miTYPE_DATA == 18 && miNTYPES == 20);
FACT(queries, miQ_INST_GLOBAL_TO_LOCAL == 4 && miQ_GROUP_NKIDS == 14 && miQ_GROUP_KID == 15 &&
                  miQ_MTL_SHADER == 43 && miQ_MTL_DISPLACE == 44 && miQ_MTL_SHADOW == 45 &&
                  miQ_MTL_VOLUME == 46 && miQ_MTL_ENVIRONMENT == 47 && miQ_MTL_CONTOUR == 48 &&
                  miQ_MTL_PHOTON == 49 && miQ_MTL_PHOTONVOL == 50 && miQ_FUNC_USERPTR == 51 &&
                  miQ_NUM_GLOBAL_LIGHTS == 70 && miQ_GLOBAL_LIGHTS == 71 && miQ_NUM_TEXTURES == 82 &&
                  miQ_INST_DATA == 102 && miQ_DATA_PARAM == 105 && miQ_DATA_PARAM_SIZE == 109 &&
                  miQ_OBJ_DATA == 114 && miQ_FUNC_TLS_GET == 124 && miQ_FUNC_TLS_SET == 126 &&
                  miQ_FUNC_TLS_GETALL == 127 && miQ_FUNC_CALLTYPE == 140 && miQ_SAMPLE_OVERRIDE == 142 &&
                  miQ_MTL_LIGHTMAP == 146 && miQ_PRI_DATA == 154 && miQ_FINALGATHER_STATE == 161);

#endif
