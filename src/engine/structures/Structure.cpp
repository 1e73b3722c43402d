#include "engine/structures/Structure.h"

namespace engine {

Eigen::VectorXd Structure::FromWorking(const Eigen::VectorXd& working, Eigen::MatrixXd* jacobian) const {
    if (jacobian) jacobian->setIdentity(working.size(), working.size());
    return working;
}

}  // namespace engine
