// Matrix functions of the interface.
#include "api/api.h"
#include "kit/matrix.h"

STAGE_API void mi_matrix_ident(miScalar* r) {
    stage::matrix_identity(r);
}

STAGE_API void mi_matrix_null(miScalar* r) {
    stage::matrix_null(r);
}

STAGE_API miBoolean mi_matrix_isident(const miScalar* m) {
    return stage::matrix_is_identity(m) ? miTRUE : miFALSE;
}

STAGE_API void mi_matrix_copy(miScalar* r, const miScalar* a) {
    stage::matrix_copy(r, a);
}

STAGE_API miBoolean mi_matrix_invert(miScalar* r, const miScalar* a) {
    return stage::matrix_invert(r, a) ? miTRUE : miFALSE;
}

STAGE_API void mi_matrix_prod(miScalar* r, const miScalar* a, const miScalar* b) {
    stage::matrix_product(r, a, b);
}

STAGE_API void mi_matrix_rotate(miScalar* r, const miScalar xrot, const miScalar yrot, const miScalar zrot) {
    stage::matrix_rotate(r, xrot, yrot, zrot);
}

STAGE_API void mi_point_transform(miVector* r, const miVector* v, const miScalar* m) {
    *r = stage::transform_point(*v, m);
}

STAGE_API void mi_vector_transform(miVector* r, const miVector* v, const miScalar* m) {
    *r = stage::transform_vector(*v, m);
}

STAGE_API void mi_vector_transform_T(miVector* r, const miVector* v, const miScalar* m) {
    *r = stage::transform_vector_transposed(*v, m);
}
