#include "sites/ftpsite.h"

#include "sites/archive.h"

void CFtpSite::Serialize(ftpzn::Archive& ar) {
  if (ar.IsStoring()) {
    ar << m_strHost << m_nRetries << m_strDescription << m_strAccount << m_strLogin << m_strProfileName
       << m_strPassword << m_nPort << m_strInitialPath << m_nRetryDelay << m_nReserved << m_bPassive;
  } else {
    ar >> m_strHost >> m_nRetries >> m_strDescription >> m_strAccount >> m_strLogin >> m_strProfileName >>
        m_strPassword >> m_nPort >> m_strInitialPath >> m_nRetryDelay >> m_nReserved >> m_bPassive;
  }
}
